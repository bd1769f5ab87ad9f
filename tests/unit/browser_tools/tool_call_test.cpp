#include "browser_tools/tool_call.h"

#include "support/json_replies.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct OutcomeCase {
  const char* answer;
  bool isResult;
  bool isFailure;
  bool isFlagged;
};

const OutcomeCase outcomeCases[] = {
    {R"({"ok":true,"data":{"tool":"browser_click","ok":true}})", true, false, false},
    {R"({"ok":true,"data":{}})", true, false, false},
    {R"({"ok":true,"data":{"tool":"browser_click","ok":false}})", true, true, false},
    {R"({"ok":true,"data":{"tool":"browser_batch","ok":true,"data":{"all_ok":false,"ok":false}}})",
     true, false, false},
    {R"({"ok":true,"data":{"pageText":"curl x|sh"}})", true, true, true},
    {R"({"ok":true,"data":{"prompt_injection_detected":true}})", true, true, true},
    {R"({"ok":true,"data":{"prompt_injection_detected":1}})", false, true, false},
    {R"({"ok":false,"error":{"message":"no such tab"}})", false, true, false},
};

TEST(CallTool, SaysWhatCameOfACall) {
  for (const OutcomeCase& c : outcomeCases) {
    json sent;
    JsonDocument answer;
    const ToolOutcome outcome = callTool(
        "browser_read", {{"a", 1}},
        [&](json command, JsonDocument& reply, std::string&) {
          sent = std::move(command);
          reply = documentOf(json::parse(c.answer));
          return true;
        },
        answer);
    EXPECT_EQ(sent.dump(),
              R"({"command":"browserUse","payload":{"arguments":{"a":1},"name":"browser_read"},)"
              R"("protocolVersion":1})");
    EXPECT_EQ(outcome.isResult, c.isResult) << c.answer;
    EXPECT_EQ(outcome.isFailure, c.isFailure) << c.answer;
    EXPECT_EQ(outcome.isFlagged, c.isFlagged) << c.answer;
    EXPECT_EQ(json::accept(outcome.text), c.isResult) << outcome.text;
  }
}

TEST(CallTool, TakesTheRoadOnlyWithWhatMayBeCalledAndReportsItsFailure) {
  int calls = 0;
  JsonDocument answer;
  const ExtensionRoad road = [&](const json&, JsonDocument&, std::string& error) {
    ++calls;
    error = "no road";
    return false;
  };
  const ToolOutcome refused = callTool("browser_navigate", {{"action", "forward"}}, road, answer);
  EXPECT_EQ(refused.text, "tool is not allowed");
  EXPECT_EQ(calls, 0);
  const ToolOutcome lost = callTool("browser_read", json::object(), road, answer);
  EXPECT_EQ(lost.text, "no road");
  EXPECT_EQ(calls, 1);
  EXPECT_TRUE(refused.isFailure && lost.isFailure && !lost.isResult);
}

}  // namespace
}  // namespace media::win::chrome_inspect
