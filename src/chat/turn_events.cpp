#include "chat/turn_events.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "channel/panel_events.h"
#include "text/json_text.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {

using nlohmann::json;

TurnEvents::TurnEvents(std::string runId) : runId_(std::move(runId)) {}

TurnEvents::~TurnEvents() {
  try {
    const Lock lock(mutex_);
    if (begun_) sendDone(false, "agent turn failed");
  } catch (const std::exception&) {  // no memory for the last word
  }
}

void TurnEvents::begin(json details) {
  details["id"] = runId_;
  const Lock lock(mutex_);
  begun_ = true;
  emitPanelMessage("setBusy", json::array({true}));
  emitPanelMessage("agentStarted", json::array({std::move(details)}));
}

void TurnEvents::send(std::string_view method, const json& args) {
  const Lock lock(mutex_);
  if (!ended_) emitPanelMessage(method, args);
}

void TurnEvents::send(EventFrames& frames) {
  if (frames.empty()) return;
  const Lock lock(mutex_);
  if (ended_) return frames.clear();
  sendEventFrames(frames);
}

void TurnEvents::succeed(std::string_view chatSessionId, std::string_view text, const json& usage) {
  const Lock lock(mutex_);
  if (ended_) return;
  EventFrames frames;
  std::string& args = frames.begin() += '[';
  JsonObjectText answer(args);
  answer.text("chatSessionId", chatSessionId);
  answer.text("runId", runId_);
  answer.text("text", text);
  answer.end();
  args += ']';
  frames.end("completeAssistantText");
  sendEventFrames(frames);
  if (usage.is_object() && !usage.empty())
    emitPanelMessage("setTurnLlmUsage", json::array({usage}));
  sendDone(true, "");
}

void TurnEvents::fail(std::string_view error) {
  const Lock lock(mutex_);
  sendDone(false, error);
}

void TurnEvents::cancel() {
  try {
    const Lock lock(mutex_);
    if (begun_) sendDone(false, "cancelled");
  } catch (const std::exception&) {
  }
}

void TurnEvents::sendDone(bool ok, std::string_view error) {
  if (ended_) return;
  emitPanelMessage("agentDone", json::array({runId_, ok, foreignText(error)}));
  ended_ = true;  // only now: what could not be sent may be tried again
}

}  // namespace media::win::chrome_inspect
