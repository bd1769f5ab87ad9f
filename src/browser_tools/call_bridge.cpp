#include "browser_tools/call_bridge.h"

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "browser_tools/step_checks.h"
#include "browser_tools/tool_catalog.h"
#include "channel/pending_replies.h"
#include "common/tick_ids.h"
#include "screening/injection_text.h"
#include "screening/page_compaction.h"
#include "screening/page_screening.h"
#include "text/json_read.h"
#include "text/leaked.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::uint32_t answerTimeoutMs = 25000;

// What a batch reports inside its data and the agent looks for beside it.
constexpr const char* hoistedKeys[] = {"steps", "all_ok", "model", "first_failure", "batch_error"};

// What compaction must not take away.
constexpr const char* setAsideKeys[] = {"tabId", "code", "action", "tabs", "closed", "reused"};

std::string newRequestId() {
  static TickIds& ids = leaked<TickIds>();
  return std::string(ownRequestPrefix) + std::to_string(ids.next());
}

json failureOf(std::string_view tool, std::string_view error) {
  return {{"error", error}, {"ok", false}, {"tool", tool}};
}

// Where a batch reports what is hoisted; nullptr for the results of other tools.
json* batchReport(json& data) {
  if (lenientText(data, "tool") != "browser_batch") return nullptr;
  const auto inner = data.find("data");
  return inner != data.end() && inner->is_object() ? &*inner : nullptr;
}

void hoist(json& report, json& data) {
  for (const char* key : hoistedKeys) {
    const auto member = report.find(key);
    if (member != report.end() && !data.contains(key)) data[key] = std::move(*member);
  }
}

json compactKeeping(json data) {
  json kept = json::object();
  for (const char* key : setAsideKeys) {
    const auto member = data.find(key);
    if (member != data.end()) kept[key] = std::move(*member);
  }
  json compacted = compactBrowserResult(std::move(data));
  for (auto& [key, value] : kept.items()) compacted[key] = std::move(value);
  return compacted;
}

json pageResult(json data) {
  json* const report = batchReport(data);
  // Judged in both places, as what is hoisted stands there too; it is moved only afterwards, since
  // the report is not in the result.
  const InjectionVerdict verdict = screenPageModel(data, {report, hoistedKeys});
  if (report != nullptr) hoist(*report, data);
  if (verdict.detected) markPageModelFlagged(data, verdict);
  if (lenientText(data, "tool") == "browser_navigate") return data;
  return compactKeeping(std::move(data));
}

std::string_view failureText(const json& reply) {
  const json* error = findObject(reply, "error");
  return error != nullptr ? lenientText(*error, "message", "browser tool failed")
                          : "browser tool failed";
}

json toolResult(std::string_view tool, json reply) {
  if (!lenientBool(reply, "ok", false)) return failureOf(tool, failureText(reply));
  const auto data = reply.find("data");
  if (data == reply.end() || !data->is_object()) {
    return failureOf(tool, "Chrome returned an empty browser result.");
  }
  try {
    return pageResult(std::move(*data));
  } catch (const json::exception& failure) {
    return failureOf(tool, foreignText(failure.what()));
  }
}

}  // namespace

json callBrowserTool(const json& request) {
  const std::string tool(lenientText(request, "name"));
  const json none = json::object();
  const json* given = findObject(request, "arguments");
  const json& arguments = given != nullptr ? *given : none;
  if (tool.empty()) return {{"error", "missing tool name"}, {"ok", false}};
  if (!isAllowedTool(tool, arguments, 0)) return failureOf(tool, "tool is not allowed");
  const json message = {{"protocolVersion", 1},
                        {"requestId", newRequestId()},
                        {"command", "browserUse"},
                        {"payload", {{"arguments", arguments}, {"name", tool}}}};
  json reply;
  if (!callExtension(message, reply, answerTimeoutMs)) {
    return failureOf(tool, "Chrome extension did not answer the browser tool.");
  }
  return toolResult(tool, std::move(reply));
}

bool isAllowedTool(std::string_view name, const json& arguments, int depth) {
  if (!isKnownTool(name)) return false;
  if (name == "browser_navigate") return isNavigateAction(navigateAction(arguments));
  return name != "browser_batch" || validateBatchSteps(arguments, depth);
}

}  // namespace media::win::chrome_inspect
