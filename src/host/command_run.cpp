#include "host/command_run.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "agent/agent_answer.h"
#include "agent/agent_request.h"
#include "agent_process/supervision.h"
#include "app_ipc/cmd_ipc.h"
#include "channel/envelope.h"
#include "chat/events_pump.h"
#include "text/json_parse.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* runFailed = "commandRun failed";

// The reply that passes on what the agent, or the application, has answered.
json answerWith(const json& request, json answer) {
  if (!lenientBool(answer, "ok", false)) {
    return providerRpcReply(request, false, lenientText(answer, "error", runFailed));
  }
  return providerRpcReply(request, true, takeData(answer));
}

// Whom the agent leaves the command to.
enum class RunBy { agent, application };

// Asks the agent. `application` when there is no agent, when it does not know the command (404),
// and when its answer with status 200 is no JSON or has "needsUi".
RunBy runByAgent(const json& command, json& answer) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return RunBy::application;
  const AgentResponse response =
      agentRequest(*port, L"POST", L"/v1/chat/commands/run", dumpJson(command));
  if (response.status == 404) return RunBy::application;
  const bool parsed = parseJson(response.body, answer, error) == ParseOutcome::ok;
  if (response.status == 200) {
    return parsed && !lenientBool(answer, "needsUi", false) ? RunBy::agent : RunBy::application;
  }
  answer = {{"ok", false}, {"error", lenientText(answer, "error", runFailed)}};
  return RunBy::agent;
}

json runByApplication(const json& request, const json& command) {
  json answer;
  std::string error;
  if (commandRun(command, answer, error)) return answerWith(request, std::move(answer));
  return providerRpcReply(request, false, error.empty() ? "morva is not running" : error);
}

}  // namespace

json answerCommandRun(const json& request) {
  (void)readText(request, "id");  // throws for an id that is no text
  json command = request;
  if (const std::string sender = chatEventsSender(); !sender.empty()) command["sender"] = sender;
  json answer;
  if (runByAgent(command, answer) == RunBy::agent) return answerWith(request, std::move(answer));
  return runByApplication(request, command);
}

}  // namespace media::win::chrome_inspect
