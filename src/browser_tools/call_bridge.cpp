#include "browser_tools/call_bridge.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "browser_tools/tool_call.h"
#include "channel/pending_replies.h"
#include "common/tick_ids.h"
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

bool askExtension(json command, JsonDocument& reply, std::string& error) {
  command["requestId"] = newRequestId();
  if (callExtension(command, reply, answerTimeoutMs)) return true;
  error = "Chrome extension did not answer the browser tool.";
  return false;
}

}  // namespace

std::string callBrowserTool(const json& request, JsonDocument& answer) {
  const std::string tool(lenientText(request, "name"));
  const json none = json::object();
  const json* given = findObject(request, "arguments");
  if (tool.empty()) return dumpJson({{"error", "missing tool name"}, {"ok", false}});
  ToolOutcome outcome = callTool(tool, given != nullptr ? *given : none, askExtension, answer);
  if (outcome.isResult) return std::move(outcome.text);
  return dumpJson({{"error", outcome.text}, {"ok", false}, {"tool", tool}});
}

}  // namespace media::win::chrome_inspect
