#include "chat/realtime.h"

#include <nlohmann/json.hpp>
#include <string>

#include "agent/agent_answer.h"
#include "agent/agent_request.h"
#include "agent/current_agent.h"
#include "agent/feed_pump.h"
#include "agent/request_slots.h"
#include "agent_process/supervision.h"
#include "browser_tools/browser_context.h"
#include "channel/panel_events.h"
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

void forwardVoiceEvent(json& event);
void voiceEventsEnded(const AgentResponse& response);

struct Voice {
  FeedPump pump{{"realtime events", CancelSlot::realtime, forwardVoiceEvent, voiceEventsEnded}};
  bool saidDone = false;  // the agent has reported the session's end itself; under the pump's lock
};

Voice& voice() {
  static Voice& all = leaked<Voice>();
  return all;
}

void forwardVoiceEvent(json& event) {
  touchAgentActivity();  // a conversation is use of the agent, however long it lasts
  const std::string method(lenientText(event, "method"));
  voice().saidDone = voice().saidDone || method == "realtimeDone";
  emitPanelMessage(method, event["args"]);
}

void voiceEventsEnded(const AgentResponse& response) {
  reportVoiceStreamEnd(response, voice().saidDone);
}

// Leaves the session before, if any.
std::uint64_t beginSession() {
  return voice().pump.begin([] {
    voice().saidDone = false;
    return true;
  });
}

void pump_realtime(std::uint16_t port, std::uint64_t session) {
  voice().pump.read(session, port, L"/v1/realtime/events");
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

void postIfKnown(const wchar_t* path, const json& body) {
  const std::uint16_t port = currentAgentPort();
  if (port != 0) (void)agentRequest(port, L"POST", path, dumpJson(body));
}

// Has the agent start a session. False when it did not; `error` says why, and may be empty.
bool startSession(std::uint16_t port, const json& body, std::string& error) {
  const AgentResponse response = agentRequest(port, L"POST", L"/v1/realtime/start", dumpJson(body));
  const AgentAnswer answer = readAnswer(response, startFailed, GoodStatus::any2xx);
  error = response.error.empty() ? answer.error : response.error;
  return error.empty() && answer.ok;
}

}  // namespace

void startRealtime(const json& request) {
  if (const json* browser = findObject(request, "browser")) setBrowserContext(*browser);
  const std::uint64_t session = beginSession();
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return reportRealtimeEnd(error);
  if (!startSession(*port, startBody(request), error)) return reportRealtimeEnd(error);
  pump_realtime(*port, session);
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

void reportVoiceStreamEnd(const AgentResponse& response, bool saidDone) {
  if (saidDone) return;
  if (response.status != 200) reportRealtimeError(response.error);
  emitPanelMessage("realtimeDone", json::array());
}

void stopRealtimeEvents() { (void)beginSession(); }

}  // namespace media::win::chrome_inspect
