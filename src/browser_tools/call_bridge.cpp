#include "browser_tools/call_bridge.h"

#include <nlohmann/json.hpp>
#include <string>

#include "browser_tools/step_checks.h"
#include "browser_tools/tool_catalog.h"
#include "channel/pending_replies.h"
#include "common/tick_ids.h"
#include "screening/page_result.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/json_view.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::uint32_t answerTimeoutMs = 25000;

std::string newRequestId() {
  static TickIds& ids = leaked<TickIds>();
  return std::string(ownRequestPrefix) + std::to_string(ids.next());
}

std::string failureOf(std::string_view tool, std::string_view error) {
  return dumpJson({{"error", error}, {"ok", false}, {"tool", tool}});
}

std::string_view failureText(JsonView reply) {
  const JsonView message = reply["error"]["message"];
  return message.isString() ? message.text() : "browser tool failed";
}

std::string toolResult(std::string_view tool, JsonDocument& reply) {
  if (!reply.root()["ok"].isTrue()) return failureOf(tool, failureText(reply.root()));
  const JsonView data = reply.root()["data"];
  if (!data.isObject()) return failureOf(tool, "Chrome returned an empty browser result.");
  std::string result;
  std::string error;
  return appendPageResult(reply, data, result, error) ? result : failureOf(tool, error);
}

}  // namespace

std::string callBrowserTool(const json& request, JsonDocument& answer) {
  const std::string tool(lenientText(request, "name"));
  const json none = json::object();
  const json* given = findObject(request, "arguments");
  const json& arguments = given != nullptr ? *given : none;
  if (tool.empty()) return dumpJson({{"error", "missing tool name"}, {"ok", false}});
  if (!isAllowedTool(tool, arguments, 0)) return failureOf(tool, "tool is not allowed");
  const json message = {{"protocolVersion", 1},
                        {"requestId", newRequestId()},
                        {"command", "browserUse"},
                        {"payload", {{"arguments", arguments}, {"name", tool}}}};
  if (!callExtension(message, answer, answerTimeoutMs)) {
    return failureOf(tool, "Chrome extension did not answer the browser tool.");
  }
  return toolResult(tool, answer);
}

bool isAllowedTool(std::string_view name, const json& arguments, int depth) {
  if (!isKnownTool(name)) return false;
  if (name == "browser_navigate") return isNavigateAction(navigateAction(arguments));
  return name != "browser_batch" || validateBatchSteps(arguments, depth);
}

}  // namespace media::win::chrome_inspect
