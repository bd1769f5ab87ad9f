#include "chat/realtime.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <utility>

#include "agent/agent_answer.h"
#include "agent/agent_request.h"
#include "agent/agent_state.h"
#include "agent/event_feed.h"
#include "agent/event_splitter.h"
#include "agent_process/supervision.h"
#include "browser_tools/browser_context.h"
#include "channel/panel_events.h"
#include "common/detached.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/leaked.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr int acquireTimeoutMs = 1500;
constexpr const char* sessionFailed = "realtime session failed";
constexpr const char* startFailed = "realtime start failed";

struct Sessions {
  // Held while an event is written, and when the next session begins: an event that was let
  // through and then held up would otherwise come after the end of its session.
  std::mutex speaking;
  std::atomic<std::uint64_t> realtimeGeneration = 0;  // written under the lock
};

Sessions& sessions() {
  static Sessions& all = leaked<Sessions>();
  return all;
}

std::string textOr(const std::string& text, const char* fallback) {
  return text.empty() ? fallback : foreignText(text);
}

void reportRealtimeError(const std::string& error) {
  emitPanelMessage("realtimeError", json::array({textOr(error, sessionFailed)}));
}

void reportRealtimeEnd(const std::string& error) {
  reportRealtimeError(error);
  emitPanelMessage("realtimeDone", json::array());
}

// The state of one session's pump; belongs to its thread.
struct RealtimePump {
  std::uint64_t generation;
  EventSplitter splitter;
  bool done = false;  // the agent said so itself

  bool isCurrent() const { return sessions().realtimeGeneration == generation; }

  void forward(std::string_view block) {
    json event;
    if (!readFeedEvent(block, event)) return;
    const std::lock_guard lock(sessions().speaking);
    if (!isCurrent()) return;
    touchAgentActivity();  // a conversation is use of the agent, however long it lasts
    const std::string method(lenientText(event, "method"));
    done = done || method == "realtimeDone";
    emitPanelMessage(method, event["args"]);
  }

  void feed(std::string_view chunk) {
    if (!isCurrent()) return;
    try {
      splitter.feed(chunk, [this](std::string_view block) { forward(block); });
    } catch (const std::length_error&) {
      splitter = EventSplitter();  // a block without end: what it would have been is lost
    }
  }

  void end(const AgentResponse& response) {
    forward(splitter.pending());
    const std::lock_guard lock(sessions().speaking);
    if (!isCurrent() || done) return;
    if (response.status != 200) reportRealtimeError(response.error);
    emitPanelMessage("realtimeDone", json::array());
  }
};

void pump_realtime(std::uint16_t port, std::uint64_t generation) {
  RealtimePump pump{generation, {}, false};
  pump.end(agentFeed(
      port, L"/v1/realtime/events", CancelSlot::realtime, [&pump] { return pump.isCurrent(); },
      [&pump](std::string_view chunk) { pump.feed(chunk); }));
}

json startBody(const json& request) {
  json body = {
      {"mic_send", lenientBool(request, "mic_send", true)},
      {"acquire_timeout_ms", lenientInt32(request, "acquire_timeout_ms", acquireTimeoutMs)}};
  for (const char* key : {"preset", "chat_session_id"}) {
    const std::string_view text = lenientText(request, key);
    if (!text.empty()) body[key] = text;
  }
  return body;
}

// Leaves the session before, if any.
std::uint64_t beginSession() {
  std::uint64_t generation = 0;
  {
    const std::lock_guard lock(sessions().speaking);
    generation = ++sessions().realtimeGeneration;
  }
  abortRequests(CancelSlot::realtime);
  return generation;
}

void postIfKnown(const wchar_t* path, const json& body) {
  const std::uint16_t port = currentAgentPort();
  if (port != 0) (void)agentRequest(port, L"POST", path, dumpJson(body));
}

// Whether the agent has started the session; `error` is why not, and may be empty.
bool startSession(std::uint16_t port, const json& body, std::string& error) {
  const AgentResponse response = agentRequest(port, L"POST", L"/v1/realtime/start", dumpJson(body));
  const AgentAnswer answer = readAnswer(response, startFailed, GoodStatus::any2xx);
  error = response.error.empty() ? answer.error : response.error;
  return error.empty() && answer.ok;
}

}  // namespace

void startRealtime(const json& request) {
  if (const json* browser = findObject(request, "browser")) setBrowserContext(*browser);
  const std::uint64_t generation = beginSession();
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return reportRealtimeEnd(error);
  if (!startSession(*port, startBody(request), error)) return reportRealtimeEnd(error);
  const auto pump = [port = *port, generation] { pump_realtime(port, generation); };
  if (!runDetached("realtime events", pump)) reportRealtimeEnd(sessionFailed);
}

void pushToTalk(const json& request) {
  postIfKnown(L"/v1/realtime/ptt",
              {{"held", readBool(request, "held", true)},
               {"latched", readBool(request, "latched", false)},
               {"finishInputTurn", readBool(request, "finishInputTurn", false)}});
}

void stopRealtime() {
  stopRealtimeEvents();  // first: the agent's own "realtimeDone" would be a second one
  postIfKnown(L"/v1/realtime/stop", json::object());
  emitPanelMessage("realtimeDone", json::array());
}

void stopRealtimeEvents() { (void)beginSession(); }

}  // namespace media::win::chrome_inspect
