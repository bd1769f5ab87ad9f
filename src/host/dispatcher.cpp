#include "host/dispatcher.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "agent/agent_request.h"
#include "agent/current_agent.h"
#include "agent/running_turns.h"
#include "agent_process/supervision.h"
#include "browser_tools/browser_context.h"
#include "channel/envelope.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "chat/events_pump.h"
#include "chat/realtime.h"
#include "chat/speech.h"
#include "chat/turn.h"
#include "common/detached.h"
#include "host/agent_proxy.h"
#include "host/cli_dir_kinds.h"
#include "shell/path_opening.h"
#include "shell/pickers.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/leaked.h"
#include "text/utf8.h"
#include "toolserver/tool_server.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// Ends what runs on its own towards the panel; the agent and the turns go on.
void stopBackgroundStreams() {
  stopChatEvents();
  stopRealtimeEvents();
}

// --- answerX(request) performs a message of kind X and returns its reply ---

std::string answerAck(JsonView) { return ackReply(); }

std::string answerBrowserSnapshot(JsonView request) {
  if (const JsonView browser = request["browser"]; browser.isObject()) {
    setBrowserContext(browser.toValue());
  }
  return ackReply();
}

std::string answerContextImportUrl(JsonView) {
  const std::string url = contextFileUrl();
  if (url.empty()) return ackError("file import is not ready");
  return dumpJson({{"kind", "ack"}, {"ok", true}, {"token", sessionToken()}, {"url", url}});
}

std::string answerPanelClosed(JsonView) {
  stopBackgroundStreams();
  return ackReply();
}

std::string answerPoll(JsonView request) {
  // All other events have been sent already. Replied to here, so that no later line overtakes
  // these.
  sendBehindLogLines([request](const std::vector<json>& lines) {
    json events = json::array();
    for (const json& line : lines) events.push_back({{"method", "appendDebugLog"}, {"args", line}});
    sendReply(request,
              dumpJson({{"events", std::move(events)}, {"kind", "hostChatEvents"}, {"ok", true}}));
  });
  return {};
}

std::string answerChatSender(JsonView request) {
  pointChatEvents(std::string(readText(request, "sender")), readUint64(request, "after", 0));
  return dumpJson({{"kind", "chatSender"}, {"ok", true}});
}

std::string answerOpenPathInternal(JsonView request) {
  return answerOpenPathsByAgent(request, false);
}

std::string answerOpenPathFullscreen(JsonView request) {
  return answerOpenPathsByAgent(request, true);
}

std::string answerRealtimeStart(JsonView request) {
  startRealtime(request.toValue());
  return ackReply();
}

std::string answerRealtimeStop(JsonView) {
  stopRealtime();
  return ackReply();
}

std::string answerPushToTalk(JsonView request) {
  pushToTalk(request.toValue());
  return ackReply();
}

std::string ackSpeech(bool started) {
  return started ? ackReply() : ackError("speech did not start");
}

std::string answerSpeak(JsonView request) {
  return ackSpeech(startSpeech(std::string(readText(request, "text"))));
}

std::string answerSpeakStop(JsonView) { return ackSpeech(controlSpeech(SpeechControl::stop)); }

std::string answerSpeakPause(JsonView) { return ackSpeech(controlSpeech(SpeechControl::pause)); }

std::string answerSpeakResume(JsonView) { return ackSpeech(controlSpeech(SpeechControl::resume)); }

std::string answerAgentReload(JsonView) {
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    (void)agentRequest(port, L"POST", L"/v1/speak/stop", "{}");
  }
  stopBackgroundStreams();
  std::string error;
  if (ensureAgent(error)) return ackReply();
  return ackError(error.empty() ? "llm agent did not reconnect" : error);
}

std::string answerSend(JsonView request) {
  if (readText(request, "prompt").empty()) {
    return dumpJson({{"error", "empty prompt"}, {"kind", "error"}, {"ok", false}});
  }
  return startTurn(request.toValue()) ? ackReply() : ackError("chat turn did not start");
}

std::string answerStop(JsonView) {
  stopTurns();
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    // A pending consent question is cancelled too; that there is none is no failure.
    (void)agentRequest(port, L"POST", L"/v1/chat/consent", R"({"cancel":true})");
  }
  (void)controlSpeech(SpeechControl::stop);  // the turn is stopped all the same
  return ackReply();
}

std::string ackOutcome(bool ok, const std::string& error) {
  return ok ? ackReply() : ackError(error);
}

std::string_view targetOf(JsonView request) {
  const std::string_view path = readText(request, "path");
  return path.empty() ? readText(request, "url") : path;
}

std::string answerOpenUrl(JsonView request) {
  std::string error;
  const bool ok = openUrl(targetOf(request), error);
  return ackOutcome(ok, error);
}

template <PathAction action>
std::string answerOpenPath(JsonView request) {
  std::string error;
  const bool ok = openPath(targetOf(request), action, error);
  return ackOutcome(ok, error);
}

std::string answerAttachContextPaths(JsonView request) {
  if (const JsonView paths = request["paths"]; paths.isArray()) attachContextPaths(paths.toValue());
  return ackReply();
}

std::string answerPickContextPaths(JsonView request) {
  pickContextPaths(readText(request, "mode") == "folder");
  return ackReply();
}

enum class Activity { none, user };

struct Kind {
  std::string_view name;
  Activity activity;
  std::string (*answer)(JsonView request);
};

// A kind that is not here is acknowledged and does nothing.
constexpr Kind kinds[] = {
    {"browserSnapshot", Activity::user, answerBrowserSnapshot},
    {"panelClosed", Activity::user, answerPanelClosed},
    {"poll", Activity::none, answerPoll},
    {"cliDirGet", Activity::user, answerCliDirGet},
    {"chatSender", Activity::user, answerChatSender},
    {"cliDirSet", Activity::user, answerCliDirSet},
    {"cliDirApply", Activity::user, answerCliDirApply},
    {"cliDirBrowse", Activity::user, answerCliDirBrowse},
    {"providerRpc", Activity::user, answerProviderRpc},
    {"openPathInternal", Activity::user, answerOpenPathInternal},
    {"openPathFullscreen", Activity::user, answerOpenPathFullscreen},
    {"openPathDefault", Activity::user, answerOpenPath<PathAction::open>},
    {"openUrlDefault", Activity::user, answerOpenUrl},
    {"revealPathInExplorer", Activity::user, answerOpenPath<PathAction::reveal>},
    {"selectPathInExplorer", Activity::user, answerOpenPath<PathAction::reveal>},
    {"openFolderInExplorer", Activity::user, answerOpenPath<PathAction::explore>},
    {"realtimeStart", Activity::user, answerRealtimeStart},
    {"realtimeStop", Activity::user, answerRealtimeStop},
    {"realtimePushToTalk", Activity::user, answerPushToTalk},
    {"consentReply", Activity::user, answerConsentReply},
    {"speak", Activity::user, answerSpeak},
    {"speakStop", Activity::user, answerSpeakStop},
    {"speakPause", Activity::user, answerSpeakPause},
    {"speakResume", Activity::user, answerSpeakResume},
    {"settings", Activity::user, answerSettings},
    {"attachContextPaths", Activity::user, answerAttachContextPaths},
    {"pickContextPaths", Activity::user, answerPickContextPaths},
    {"contextImportUrl", Activity::user, answerContextImportUrl},
    {"agentReload", Activity::user, answerAgentReload},
    {"stop", Activity::user, answerStop},
    {"send", Activity::user, answerSend},
    {"ready", Activity::none, answerAck},
    {"chatWebState", Activity::none, answerAck},
    {"requestContext", Activity::none, answerAck},
    {"hostLog", Activity::none, answerAck},
    {"getStatus", Activity::none, answerAck},
};

Kind findKind(std::string_view name) {
  const auto* known = std::find_if(std::begin(kinds), std::end(kinds),
                                   [name](const Kind& kind) { return kind.name == name; });
  return known != std::end(kinds) ? *known : Kind{name, Activity::user, answerAck};
}

void startWatchdogOnce() {
  static std::once_flag& started = leaked<std::once_flag>();
  // Without a thread for it an idle agent lives on until the host ends: no harm.
  std::call_once(started, [] { (void)runDetached("idle watchdog", idleWatchdog); });
}

std::string perform(const Kind& kind, JsonView request) {
  startWatchdogOnce();
  if (kind.activity == Activity::user) touchAgentActivity();
  return kind.answer(request);
}

}  // namespace

std::string handleMessage(JsonView request) {
  return perform(findKind(readText(request, "kind")), request);
}

std::string failureReply(JsonView request, std::string_view error) {
  if (lenientText(request, "kind") == "providerRpc") {
    return providerRpcError(request, foreignText(error));
  }
  return ackError(error);
}

void answerPanelMessage(JsonView request) {
  Sending sending = Sending::now;
  std::string reply;
  try {
    const Kind kind = findKind(readText(request, "kind"));
    sending = kind.answer == answerAck ? Sending::held : Sending::now;
    // Nothing that may take its time keeps a reply from the panel.
    if (sending == Sending::now) (void)writeHeldFrames();
    reply = perform(kind, request);
  } catch (const std::exception& failure) {
    reply = failureReply(request, failure.what());
  }
  if (!reply.empty()) sendReply(request, reply, sending);
}

}  // namespace media::win::chrome_inspect
