#include "chat/turn.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "agent/agent_request.h"
#include "agent_process/supervision.h"
#include "browser_tools/browser_context.h"
#include "chat/preset_list.h"
#include "chat/turn_stream.h"
#include "common/detached.h"
#include "common/paths.h"
#include "common/tick_ids.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/leaked.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// What ends a turn early, with the text for its "agentDone".
struct TurnFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::string newRunId() {
  static TickIds& ids = leaked<TickIds>();
  return "chrome-" + std::to_string(ids.next());
}

std::string chatSessionIdOf(const json& message) {
  const std::string_view id = readText(message, "chat_session_id");
  return std::string(id.empty() ? "chrome" : id);
}

// The prompt, headed by the tab that the user was looking at.
std::string promptWithTab(const json& message) {
  std::string prompt(readText(message, "prompt"));
  const json* browser = findObject(message, "browser");
  if (browser == nullptr) return prompt;
  setBrowserContext(*browser);
  const std::string_view url = readText(*browser, "currentUrl");
  const std::string_view title = readText(*browser, "currentTitle");
  if (url.empty()) return prompt;
  std::string headed = "[chrome tab] ";
  headed.append(title).append(" \xE2\x80\x94 ").append(url).append("\n\n");  // EM DASH
  return headed + prompt;
}

std::string choosePreset(std::uint16_t port, const RunningTurn& running) {
  const AgentResponse response = agentTurnRequest(port, L"GET", L"/v1/models", "", running);
  json models;
  std::string error;
  if (!response.error.empty()) throw TurnFailure(response.error);
  if (parseJson(response.body, models, error) != ParseOutcome::ok) throw TurnFailure(error);
  std::string preset = defaultPresetId(normalizePresetList(models));
  if (preset.empty()) throw TurnFailure("no chat preset is selected");
  return preset;
}

json hostDetails(const json& message) {
  json details = json::object();
  if (const json* browser = findObject(message, "browser")) details["browser"] = *browser;
  if (const json* paths = findArray(message, "context_paths")) details["selection"] = *paths;
  if (!hostDataFolder().empty()) details["cwd"] = toUtf8(hostDataFolder());
  return details;
}

std::string completionBody(const json& message, const std::string& prompt,
                           const std::string& preset, const std::string& chatSessionId) {
  json body = {{"model", preset},
               {"stream", true},
               {"messages", json::array({{{"role", "user"}, {"content", prompt}}})},
               {"session_id", chatSessionId}};
  if (json details = hostDetails(message); !details.empty()) body["morva"] = std::move(details);
  return dumpJson(body);
}

AgentResponse streamAnswer(std::uint16_t port, const std::string& body, TurnStream& stream,
                           const RunningTurn& running) {
  const auto sink = [&stream](std::string_view chunk) { onStreamChunk(stream, chunk); };
  AgentResponse response = agentTurnStream(port, L"/v1/chat/completions", body, running, sink);
  finishStream(stream);
  return response;
}

void failWhenStopped(const RunningTurn& running) {
  if (running.stopped()) throw TurnFailure("cancelled");
}

std::uint16_t findAgent(const RunningTurn& running) {
  std::string error;
  const auto port = ensureAgent(error);
  failWhenStopped(running);
  if (!port) throw TurnFailure(error);
  return *port;
}

void answerTurn(const ChatTurn& turn) {
  const auto& [message, events, running] = turn;
  const std::string prompt = promptWithTab(message);
  TurnStream stream(events, chatSessionIdOf(message));
  std::string preset(readText(message, "preset"));
  events->begin(
      {{"name", preset.empty() ? "agent" : preset}, {"chat_session_id", stream.chatSessionId}});
  failWhenStopped(running);
  const std::uint16_t port = findAgent(running);
  if (preset.empty()) preset = choosePreset(port, running);
  const std::string body = completionBody(message, prompt, preset, stream.chatSessionId);
  if (!running.beginRequest()) throw TurnFailure("cancelled");
  const AgentResponse response = streamAnswer(port, body, stream, running);
  failWhenStopped(running);
  const bool accepted = response.status != 0 && response.status < 400;
  if (accepted || !stream.assistantText.empty()) {
    return events->succeed(stream.chatSessionId, stream.assistantText, stream.usage);
  }
  throw TurnFailure(response.error.empty() ? "agent request failed" : response.error);
}

}  // namespace

ChatTurn::ChatTurn(json sendMessage)
    : message(std::move(sendMessage)),
      events(std::make_shared<TurnEvents>(newRunId())),
      running([events = events] { events->cancel(); }) {}

void run_turn(const ChatTurn& turn) {
  try {
    answerTurn(turn);
  } catch (const std::exception& failure) {
    // A stop that made the agent break off in the middle of an event is still a stop.
    turn.events->fail(turn.running.stopped() ? "cancelled" : failure.what());
  }
}

bool startTurn(const json& message) {
  const auto turn = std::make_shared<const ChatTurn>(message);
  return runDetached("chat turn", [turn] { run_turn(*turn); });
}

}  // namespace media::win::chrome_inspect
