#include "host/command_run.h"

#include <nlohmann/json.hpp>
#include <string>

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

// Whom the agent leaves the command to.
enum class RunBy { agent, application };

// Asks the agent. `application` when there is no agent, when it does not know the command (404),
// when its answer is no JSON or has "needsUi".
RunBy runByAgent(const json& command, AgentAnswer& answer) {
  std::string error;
  const auto port = ensureAgent(error);
  if (!port) return RunBy::application;
  const AgentResponse response =
      agentRequest(*port, L"POST", L"/v1/chat/commands/run", dumpJson(command));
  if (!response.wasSent) return RunBy::application;
  answer = readAnswer(response, runFailed);
  // The command may have run although its answer was lost: running it again would run it twice.
  if (!response.error.empty()) return RunBy::agent;
  const bool understood = answer.isJson && !response.body.empty();
  return response.status == 404 || !understood || answer.body.root()["needsUi"].isTrue()
             ? RunBy::application
             : RunBy::agent;
}

std::string runByApplication(JsonView request, const json& command) {
  json answer;
  std::string error;
  if (!commandRun(command, answer, error)) {
    return providerRpcError(request, error.empty() ? "morva is not running" : error);
  }
  if (!lenientBool(answer, "ok", false)) {
    return providerRpcError(request, lenientText(answer, "error", runFailed));
  }
  const auto data = answer.find("data");
  return providerRpcReply(request, data != answer.end() ? dumpJson(*data) : "{}");
}

}  // namespace

std::string answerCommandRun(JsonView request) {
  (void)readText(request, "id");  // throws for an id that is no text
  json command = request.toValue();
  if (const std::string sender = chatEventsSender(); !sender.empty()) command["sender"] = sender;
  AgentAnswer answer;
  if (runByAgent(command, answer) == RunBy::application) return runByApplication(request, command);
  if (answer.ok) return providerRpcReply(request, dataText(answer));
  return providerRpcError(request, explainedError(answer));
}

}  // namespace media::win::chrome_inspect
