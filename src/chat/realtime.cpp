#include "chat/realtime.h"

#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "agent/agent_answer.h"
#include "agent/agent_request.h"
#include "agent/current_agent.h"
#include "agent/feed_pump.h"
#include "agent/request_slots.h"
#include "agent/running_turns.h"
#include "agent_process/supervision.h"
#include "browser_tools/browser_context.h"
#include "channel/panel_events.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/json_text.h"
#include "text/json_view.h"
#include "text/leaked.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr int acquireTimeoutMs = 1500;
constexpr const char* sessionFailed = "realtime session failed";
constexpr const char* startFailed = "realtime start failed";
constexpr const wchar_t* stopPath = L"/v1/realtime/stop";

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

void forwardVoiceEvent(JsonView event);
void voiceEventsEnded(const AgentResponse& response);

struct Voice {
  FeedPump pump{{"realtime events", CancelSlot::realtime, forwardVoiceEvent, voiceEventsEnded}};
  // Under the pump's lock. A session runs while `port`, its agent's, is not 0; it is use of the
  // agent for as long, however silent.
  std::uint16_t port = 0;
  std::optional<AgentInUse> use;
  bool saidDone = false;  // the agent has reported the session's end itself
};

Voice& voice() {
  static Voice& all = leaked<Voice>();
  return all;
}

// Returns the port of the session's agent; 0 when none ran.
std::uint16_t forgetSession() {
  voice().use.reset();
  return std::exchange(voice().port, 0);
}

void forwardVoiceEvent(JsonView event) {
  const std::string_view method = event["method"].text();
  const bool isEnd = method == "realtimeDone";
  if (isEnd) forgetSession();
  std::string text;
  JsonObjectText forwarded(text);
  forwarded.view("args", event["args"]);
  forwarded.text("method", method);
  forwarded.end();
  sendChatEventBatch(method, std::move(text));
  if (isEnd) voice().saidDone = true;  // only now: what was not sent is said at the stream's end
}

void voiceEventsEnded(const AgentResponse& response) {
  forgetSession();
  if (voice().saidDone) return;
  try {
    if (response.status != 200) reportRealtimeError(response.error);
  } catch (const std::exception&) {  // no memory for the reason; the end itself must be sent
  }
  emitPanelMessage("realtimeDone", json::array());
}

// Leaves the session that runs, and returns the port of its agent; 0 when there was none.
std::uint16_t leaveSession() {
  std::uint16_t port = 0;
  (void)voice().pump.begin([&port] {
    port = forgetSession();
    return true;
  });
  return port;
}

void pump_realtime(std::uint16_t port) {
  std::wstring path = L"/v1/realtime/events";  // or throws, and there is no session
  const std::uint64_t session = voice().pump.begin([port] {
    voice().port = port;
    voice().use.emplace();
    voice().saidDone = false;
    return true;
  });
  voice().pump.read(session, port, std::move(path));
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

// Nothing when there is no such agent.
void postTo(std::uint16_t port, const wchar_t* path, const json& body) {
  if (port != 0) (void)agentRequest(port, L"POST", path, dumpJson(body));
}

// Has the agent start a session. False when it did not; `error` says why, and may be empty.
bool startSession(std::uint16_t port, const json& body, std::string& error) {
  const AgentResponse response = agentRequest(port, L"POST", L"/v1/realtime/start", dumpJson(body));
  const AgentAnswer answer = readAnswer(response, startFailed, GoodStatus::any2xx);
  error = answer.error;
  return answer.ok;
}

}  // namespace

void startRealtime(const json& request) {
  if (const json* browser = findObject(request, "browser")) setBrowserContext(*browser);
  const std::uint16_t previous = leaveSession();
  std::string error;
  const auto port = ensureAgent(error);
  if (port && startSession(*port, startBody(request), error)) return pump_realtime(*port);
  postTo(previous, stopPath, json::object());  // its microphone must not stay on
  reportRealtimeEnd(error);
}

void pushToTalk(const json& request) {
  postTo(currentAgentPort(), L"/v1/realtime/ptt",
         {{"held", readBool(request, "held", true)},
          {"latched", readBool(request, "latched", false)},
          {"finishInputTurn", readBool(request, "finishInputTurn", false)}});
}

void stopRealtime() {
  stopRealtimeEvents();  // first: the agent's own "realtimeDone" would be a second one
  postTo(currentAgentPort(), stopPath, json::object());
  emitPanelMessage("realtimeDone", json::array());
}

void stopRealtimeEvents() { (void)leaveSession(); }

}  // namespace media::win::chrome_inspect
