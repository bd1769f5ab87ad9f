#include "browser_tools/tool_call.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "browser_tools/step_checks.h"
#include "browser_tools/tool_catalog.h"
#include "screening/page_result.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

ToolOutcome failureOf(std::string_view error) { return {std::string(error)}; }

std::string_view failureText(JsonView reply) {
  const JsonView message = reply["error"]["message"];
  return message.isString() ? message.text() : "browser tool failed";
}

ToolOutcome outcomeOf(JsonDocument& reply) {
  if (!reply.root()["ok"].isTrue()) return failureOf(failureText(reply.root()));
  const JsonView data = reply.root()["data"];
  if (!data.isObject()) return failureOf("Chrome returned an empty browser result.");
  ToolOutcome outcome;
  std::string error;
  if (!appendPageResult(reply, data, outcome.text, outcome.isFlagged, error)) {
    return failureOf(error);
  }
  outcome.isResult = true;
  outcome.isFailure = outcome.isFlagged || data["ok"].isFalse();
  return outcome;
}

}  // namespace

ToolOutcome callTool(std::string_view tool, const json& arguments, const ExtensionRoad& road,
                     JsonDocument& answer) {
  if (!isAllowedTool(tool, arguments, 0)) return failureOf("tool is not allowed");
  json command = {{"protocolVersion", 1},
                  {"command", "browserUse"},
                  {"payload", {{"arguments", arguments}, {"name", tool}}}};
  std::string error;
  if (!road(std::move(command), answer, error)) return failureOf(error);
  return outcomeOf(answer);
}

bool isAllowedTool(std::string_view name, const json& arguments, int depth) {
  if (!isKnownTool(name)) return false;
  if (name == "browser_navigate") return isNavigateAction(navigateAction(arguments));
  return name != "browser_batch" || validateBatchSteps(arguments, depth);
}

}  // namespace media::win::chrome_inspect
