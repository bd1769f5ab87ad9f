#include "chat/turn_end.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "channel/panel_events.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {

using nlohmann::json;

TurnEnd::TurnEnd(std::string runId) : runId_(std::move(runId)) {}

TurnEnd::~TurnEnd() {
  try {
    fail("agent turn failed");
  } catch (const std::exception&) {  // no memory for the last word
  }
}

void TurnEnd::succeed(std::string_view chatSessionId, std::string_view text, const json& usage) {
  if (sent_) return;
  emitPanelMessage(
      "completeAssistantText",
      json::array({{{"runId", runId_}, {"chatSessionId", chatSessionId}, {"text", text}}}));
  if (usage.is_object() && !usage.empty())
    emitPanelMessage("setTurnLlmUsage", json::array({usage}));
  sendDone(true, "");
}

void TurnEnd::fail(std::string_view error) { sendDone(false, error); }

void TurnEnd::sendDone(bool ok, std::string_view error) {
  if (sent_) return;
  const json args = json::array({runId_, ok, foreignText(error)});
  sent_ = true;  // from here on the event may be on its way, whatever is thrown
  emitPanelMessage("agentDone", args);
}

}  // namespace media::win::chrome_inspect
