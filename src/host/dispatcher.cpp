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

json answerAck(const json& request) { return ackReply(request); }

json answerBrowserSnapshot(const json& request) {
  if (const json* browser = findObject(request, "browser")) setBrowserContext(*browser);
  return ackReply(request);
}

json answerContextImportUrl(const json& request) {
  const std::string url = contextFileUrl();
  if (url.empty()) return ackError(request, "file import is not ready");
  json reply = ackReply(request);
  reply["url"] = url;
  reply["token"] = sessionToken();
  return reply;
}

json answerPanelClosed(const json& request) {
  stopBackgroundStreams();
  return ackReply(request);
}

json answerPoll(const json& request) {
  // All other events have been sent already. Replied to here, so that no later line overtakes
  // these.
  sendBehindLogLines([&request](const std::vector<json>& lines) {
    json events = json::array();
    for (const json& line : lines) events.push_back({{"method", "appendDebugLog"}, {"args", line}});
    sendReply(
        request,
        stampMessage({{"kind", "hostChatEvents"}, {"ok", true}, {"events", std::move(events)}},
                     request));
  });
  return nullptr;
}

json answerChatSender(const json& request) {
  pointChatEvents(std::string(readText(request, "sender")), readUint64(request, "after", 0));
  return stampMessage({{"kind", "chatSender"}, {"ok", true}}, request);
}

json answerOpenPathInternal(const json& request) { return answerOpenPathsByAgent(request, false); }

json answerOpenPathFullscreen(const json& request) { return answerOpenPathsByAgent(request, true); }

json answerRealtimeStart(const json& request) {
  startRealtime(request);
  return ackReply(request);
}

json answerRealtimeStop(const json& request) {
  stopRealtime();
  return ackReply(request);
}

json answerPushToTalk(const json& request) {
  pushToTalk(request);
  return ackReply(request);
}

json ackSpeech(const json& request, bool started) {
  return started ? ackReply(request) : ackError(request, "speech did not start");
}

json answerSpeak(const json& request) {
  return ackSpeech(request, startSpeech(std::string(readText(request, "text"))));
}

json answerSpeakStop(const json& request) {
  return ackSpeech(request, controlSpeech(SpeechControl::stop));
}

json answerSpeakPause(const json& request) {
  return ackSpeech(request, controlSpeech(SpeechControl::pause));
}

json answerSpeakResume(const json& request) {
  return ackSpeech(request, controlSpeech(SpeechControl::resume));
}

json answerAgentReload(const json& request) {
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    (void)agentRequest(port, L"POST", L"/v1/speak/stop", "{}");
  }
  stopBackgroundStreams();
  std::string error;
  if (ensureAgent(error)) return ackReply(request);
  return ackError(request, error.empty() ? "llm agent did not reconnect" : error);
}

json answerSend(const json& request) {
  if (readText(request, "prompt").empty()) {
    return stampMessage({{"kind", "error"}, {"ok", false}, {"error", "empty prompt"}}, request);
  }
  return startTurn(request) ? ackReply(request) : ackError(request, "chat turn did not start");
}

json answerStop(const json& request) {
  stopTurns();
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    // A pending consent question is cancelled too; that there is none is no failure.
    (void)agentRequest(port, L"POST", L"/v1/chat/consent", R"({"cancel":true})");
  }
  (void)controlSpeech(SpeechControl::stop);  // the turn is stopped all the same
  return ackReply(request);
}

json ackOutcome(const json& request, bool ok, const std::string& error) {
  return ok ? ackReply(request) : ackError(request, error);
}

std::string_view targetOf(const json& request) {
  const std::string_view path = readText(request, "path");
  return path.empty() ? readText(request, "url") : path;
}

json answerOpenUrl(const json& request) {
  std::string error;
  const bool ok = openUrl(targetOf(request), error);
  return ackOutcome(request, ok, error);
}

template <PathAction action>
json answerOpenPath(const json& request) {
  std::string error;
  const bool ok = openPath(targetOf(request), action, error);
  return ackOutcome(request, ok, error);
}

json answerAttachContextPaths(const json& request) {
  if (const json* paths = findArray(request, "paths")) attachContextPaths(*paths);
  return ackReply(request);
}

json answerPickContextPaths(const json& request) {
  pickContextPaths(readText(request, "mode") == "folder");
  return ackReply(request);
}

enum class Activity { none, user };

struct Kind {
  std::string_view name;
  Activity activity;
  json (*answer)(const json& request);
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

}  // namespace

json handleMessage(const json& request) {
  startWatchdogOnce();
  const Kind kind = findKind(readText(request, "kind"));
  if (kind.activity == Activity::user) touchAgentActivity();
  return kind.answer(request);
}

json failureReply(const json& request, std::string_view error) {
  if (lenientText(request, "kind") == "providerRpc") {
    return providerRpcReply(request, false, foreignText(error));
  }
  return ackError(request, error);
}

void answerPanelMessage(const json& request) {
  json reply;
  try {
    reply = handleMessage(request);
  } catch (const std::exception& failure) {
    reply = failureReply(request, failure.what());
  }
  if (!reply.is_null()) sendReply(request, std::move(reply));
}

}  // namespace media::win::chrome_inspect
