#include "browser_tools/tool_catalog.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct Tool {
  std::string_view name;
  std::string_view description;
};

constexpr Tool tools[] = {
    {"browser_read",
     "Read the active Chrome tab. Returns refs for click, type, and select. files[] lists visible "
     "image URLs and filename-like links. This is the user's Chrome window, not an in-app "
     "WebView."},
    {"browser_find", "Find elements in the active Chrome tab."},
    {"browser_scope", "Inspect or pin a zone in the active Chrome tab."},
    {"browser_click", "Click an element ref in the active Chrome tab."},
    {"browser_type", "Type into an element ref in the active Chrome tab."},
    {"browser_select", "Choose a select option in the active Chrome tab."},
    {"browser_batch", "Run read, find, click, type, and select steps on the active Chrome tab."},
    {"browser_navigate",
     "Navigate the Chrome window: goto, back, reload, tabs, switch, new, close."},
};

}  // namespace

json agentToolCatalog() {
  json list = json::array();
  for (const Tool& tool : tools) list.push_back(makeToolSchema(tool.name, tool.description));
  return {{"id", "chrome"}, {"name", "morva chat"}, {"tools", std::move(list)}};
}

json makeToolSchema(std::string_view name, std::string_view description) {
  return {{"name", name},
          {"description", description},
          {"parameters", {{"type", "object"}, {"additionalProperties", true}}}};
}

bool isKnownTool(std::string_view name) {
  return std::any_of(std::begin(tools), std::end(tools),
                     [name](const Tool& tool) { return tool.name == name; });
}

}  // namespace media::win::chrome_inspect
