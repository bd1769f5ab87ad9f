#include "browser_tools/tool_catalog.h"

#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* document =
    R"({"id":"chrome","name":"morva chat","tools":[)"
    R"({"description":"Read the active Chrome tab. Returns refs for click, type, and select. )"
    R"(files[] lists visible image URLs and filename-like links. This is the user's Chrome window, )"
    R"(not an in-app WebView.","name":"browser_read",)"
    R"("parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Find elements in the active Chrome tab.","name":"browser_find",)"
    R"("parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Inspect or pin a zone in the active Chrome tab.","name":"browser_scope",)"
    R"("parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Click an element ref in the active Chrome tab.","name":"browser_click",)"
    R"("parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Type into an element ref in the active Chrome tab.","name":"browser_type",)"
    R"("parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Choose a select option in the active Chrome tab.","name":"browser_select",)"
    R"("parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Run read, find, click, type, and select steps on the active Chrome tab.",)"
    R"("name":"browser_batch","parameters":{"additionalProperties":true,"type":"object"}},)"
    R"({"description":"Navigate the Chrome window: goto, back, reload, tabs, switch, new, close.",)"
    R"("name":"browser_navigate","parameters":{"additionalProperties":true,"type":"object"}}]})";

TEST(AgentToolCatalog, IsThisDocumentByteForByte) {
  EXPECT_EQ(dumpJson(agentToolCatalog()), document);
}

TEST(IsKnownTool, KnowsTheEightNamesExactly) {
  const nlohmann::json catalogue = agentToolCatalog();
  for (const nlohmann::json& tool : catalogue.at("tools")) {
    const auto name = tool.at("name").get<std::string>();
    EXPECT_TRUE(isKnownTool(name)) << name;
    for (const std::string& other : {name + " ", name.substr(1), std::string("browser_wait")}) {
      EXPECT_FALSE(isKnownTool(other)) << other;
    }
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
