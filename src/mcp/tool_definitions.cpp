#include "mcp/tool_definitions.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "browser_tools/tool_catalog.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// What a call does: looks only, changes how later ones look, or acts for the user.
enum class Effect { reads, pins, acts };

struct Definition {
  std::string_view name;
  std::string_view title;
  Effect effect;
  std::string_view properties;  // of the arguments, as JSON, but for that of every tool
};

constexpr std::string_view tabIdSchema =
    R"({"type":"integer","description":"Another tab than the active one, by its id."})";

constexpr Definition definitions[] = {
    {"browser_read", "Read the page", Effect::reads,
     R"({"ref":{"type":"string","description":"Only this zone or element, by its ref."}})"},
    {"browser_find", "Find elements", Effect::reads,
     R"({"query":{"type":"string","description":"Part of a name, value, role or text."},
         "ref":{"type":"string","description":"Only inside this zone or element."}})"},
    {"browser_scope", "Inspect or pin a zone", Effect::pins,
     R"({"ref":{"type":"string","description":"Pin this zone: later reads stay inside it."},
         "name":{"type":"string","description":"Pin the zone with this name."},
         "clear":{"type":"boolean","description":"Unpin."}})"},
    {"browser_click", "Click an element", Effect::acts,
     R"({"ref":{"type":"string","description":"The element, as a read or find named it."}})"},
    {"browser_type", "Type text", Effect::acts,
     R"({"ref":{"type":"string","description":"The element, as a read or find named it."},
         "text":{"type":"string","description":"What to type in the place of what is there."},
         "append":{"type":"boolean","description":"Type behind what is there."},
         "submit":{"type":"boolean","description":"Press Enter at the end."}})"},
    {"browser_select", "Choose an option", Effect::acts,
     R"({"ref":{"type":"string","description":"The select element, as a read or find named it."},
         "value":{"type":"string","description":"The option's value or label."}})"},
    {"browser_batch", "Run several steps", Effect::acts,
     R"({"steps":{"type":"array","minItems":1,"maxItems":32,
                  "description":"Run in order, up to the first that fails.",
                  "items":{"type":"object","additionalProperties":true,"properties":{
                    "action":{"type":"string","description":
                      "read, find, click, type, select, wait or batch; the other properties are the arguments of that tool."},
                    "ms":{"type":"integer","description":"How long to wait."}}}}})"},
    {"browser_navigate", "Navigate", Effect::acts,
     R"({"action":{"type":"string",
                   "enum":["goto","back","reload","tabs","switch","new","close"]},
         "url":{"type":"string","description":"For goto and new: an http or https address."}})"},
};

json annotationsOf(const Definition& definition) {
  json hints = {{"title", definition.title},
                {"readOnlyHint", definition.effect == Effect::reads},
                {"openWorldHint", true}};
  if (definition.effect != Effect::reads) {
    hints["destructiveHint"] = definition.effect == Effect::acts;
  }
  return hints;
}

json describe(const json& tool) {
  const auto& name = tool.at("name").get_ref<const std::string&>();
  const auto* const definition = std::ranges::find(definitions, name, &Definition::name);
  json schema = tool.at("parameters");
  schema["properties"] = json::parse(definition->properties);
  schema["properties"]["tabId"] = json::parse(tabIdSchema);
  if (name == "browser_batch") schema["required"] = json::array({"steps"});
  return {{"name", name},
          {"title", definition->title},
          {"description", tool.at("description")},
          {"inputSchema", schema},
          {"annotations", annotationsOf(*definition)}};
}

}  // namespace

std::string toolListResult() {
  json tools = json::array();
  const json catalogue = agentToolCatalog();
  for (const json& tool : catalogue.at("tools")) tools.push_back(describe(tool));
  return dumpJson({{"tools", tools}});
}

}  // namespace media::win::chrome_inspect
