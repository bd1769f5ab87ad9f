#include "host/dispatcher.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "agent/agent_request.h"
#include "agent/agent_state.h"
#include "agent_process/supervision.h"
#include "browser_tools/browser_context.h"
#include "channel/envelope.h"
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

json replyAck(const json& request) { return ackReply(request); }

json replyBrowserSnapshot(const json& request) {
  if (const json* browser = findObject(request, "browser")) setBrowserContext(*browser);
  return ackReply(request);
}

json replyContextImportUrl(const json& request) {
  const std::string url = contextFileUrl();
  if (url.empty()) return ackError(request, "file import is not ready");
  json reply = ackReply(request);
  reply["url"] = url;
  reply["token"] = sessionToken();
  return reply;
}

json replyPanelClosed(const json& request) {
  stopBackgroundStreams();
  return ackReply(request);
}

json replyPoll(const json& request) {
  return stampMessage(
      {{"kind", "hostChatEvents"}, {"ok", true}, {"events", takePendingChatEvents()}}, request);
}

json replyChatSender(const json& request) {
  const std::int64_t after = readInt64(request, "after", 0);
  pointChatEvents(std::string(readText(request, "sender")),
                  static_cast<std::uint64_t>(std::max<std::int64_t>(after, 0)));
  return stampMessage({{"kind", "chatSender"}, {"ok", true}}, request);
}

json replyOpenPathInternal(const json& request) { return openPaths(request, false); }

json replyOpenPathFullscreen(const json& request) { return openPaths(request, true); }

json replyRealtimeStart(const json& request) {
  startRealtime(request);
  return ackReply(request);
}

json replyRealtimeStop(const json& request) {
  stopRealtime();
  return ackReply(request);
}

json replyPushToTalk(const json& request) {
  pushToTalk(request);
  return ackReply(request);
}

json ackSpeech(const json& request, bool started) {
  return started ? ackReply(request) : ackError(request, "speech did not start");
}

json replySpeak(const json& request) {
  return ackSpeech(request, startSpeech(std::string(readText(request, "text"))));
}

json replySpeakStop(const json& request) {
  return ackSpeech(request, controlSpeech(SpeechControl::stop));
}

json replySpeakPause(const json& request) {
  return ackSpeech(request, controlSpeech(SpeechControl::pause));
}

json replySpeakResume(const json& request) {
  return ackSpeech(request, controlSpeech(SpeechControl::resume));
}

json replyAgentReload(const json& request) {
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    (void)agentRequest(port, L"POST", L"/v1/speak/stop", "{}");
  }
  stopBackgroundStreams();
  std::string error;
  if (ensureAgent(error)) return ackReply(request);
  return ackError(request, error.empty() ? "llm agent did not reconnect" : error);
}

json replySend(const json& request) {
  if (readText(request, "prompt").empty()) {
    return stampMessage({{"kind", "error"}, {"ok", false}, {"error", "empty prompt"}}, request);
  }
  return startTurn(request) ? ackReply(request) : ackError(request, "chat turn did not start");
}

json replyStop(const json& request) {
  stopTurns();
  if (const std::uint16_t port = currentAgentPort(); port != 0) {
    // A pending consent question is cancelled too; that there is none is no failure.
    (void)agentRequest(port, L"POST", L"/v1/chat/consent", R"({"cancel":true})");
  }
  (void)controlSpeech(SpeechControl::stop);  // the turn is stopped all the same
  return ackReply(request);
}

json replyOpenPathDefault(const json& request) { return openPath(request, PathAction::open); }

json replyRevealPath(const json& request) { return openPath(request, PathAction::reveal); }

json replyOpenFolder(const json& request) { return openPath(request, PathAction::explore); }

enum class Activity { none, user };

struct Kind {
  std::string_view name;
  Activity activity;
  json (*reply)(const json& request);
};

// A kind that is not here is acknowledged and does nothing.
constexpr Kind kinds[] = {
    {"browserSnapshot", Activity::user, replyBrowserSnapshot},
    {"panelClosed", Activity::user, replyPanelClosed},
    {"poll", Activity::none, replyPoll},
    {"cliDirGet", Activity::user, replyCliDirGet},
    {"chatSender", Activity::user, replyChatSender},
    {"cliDirSet", Activity::user, replyCliDirSet},
    {"cliDirApply", Activity::user, replyCliDirApply},
    {"cliDirBrowse", Activity::user, replyCliDirBrowse},
    {"providerRpc", Activity::user, answerProviderRpc},
    {"openPathInternal", Activity::user, replyOpenPathInternal},
    {"openPathFullscreen", Activity::user, replyOpenPathFullscreen},
    {"openPathDefault", Activity::user, replyOpenPathDefault},
    {"openUrlDefault", Activity::user, openUrl},
    {"revealPathInExplorer", Activity::user, replyRevealPath},
    {"selectPathInExplorer", Activity::user, replyRevealPath},
    {"openFolderInExplorer", Activity::user, replyOpenFolder},
    {"realtimeStart", Activity::user, replyRealtimeStart},
    {"realtimeStop", Activity::user, replyRealtimeStop},
    {"realtimePushToTalk", Activity::user, replyPushToTalk},
    {"consentReply", Activity::user, replyConsent},
    {"speak", Activity::user, replySpeak},
    {"speakStop", Activity::user, replySpeakStop},
    {"speakPause", Activity::user, replySpeakPause},
    {"speakResume", Activity::user, replySpeakResume},
    {"settings", Activity::user, openSettings},
    {"attachContextPaths", Activity::user, attachContextPaths},
    {"pickContextPaths", Activity::user, pickContextPaths},
    {"contextImportUrl", Activity::user, replyContextImportUrl},
    {"agentReload", Activity::user, replyAgentReload},
    {"stop", Activity::user, replyStop},
    {"send", Activity::user, replySend},
    {"ready", Activity::none, replyAck},
    {"chatWebState", Activity::none, replyAck},
    {"requestContext", Activity::none, replyAck},
    {"hostLog", Activity::none, replyAck},
    {"getStatus", Activity::none, replyAck},
};

Kind findKind(std::string_view name) {
  const auto* known = std::find_if(std::begin(kinds), std::end(kinds),
                                   [name](const Kind& kind) { return kind.name == name; });
  return known != std::end(kinds) ? *known : Kind{name, Activity::user, replyAck};
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
  return kind.reply(request);
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
