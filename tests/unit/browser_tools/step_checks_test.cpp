// Which tools there are, and which steps and actions they take.
#include "browser_tools/step_checks.h"

#include "browser_tools/tool_catalog.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

const json click = {{"action", "click"}};

void expectStep(const json& step, bool accepted) {
  for (const json& steps : {json::array({step}), json::array({click, step, click})}) {
    EXPECT_EQ(validateBatchSteps({{"steps", steps}}, 0), accepted) << step;
  }
}

TEST(ValidateBatchSteps, KnowsTheStepsOfABatch) {
  for (const char* key : {"action", "tool", "name"}) {
    for (const char* word : {"read", "find", "click", "type", "select", "wait", "browser_read",
                             "browser_find", "browser_click", "browser_type", "browser_select"}) {
      expectStep({{key, word}, {"ref", "e4"}}, true);
    }
    for (const char* word :
         {"scope", "browser_scope", "navigate", "browser_navigate", "browser_wait", "browser_",
          "browser_browser_read", "Click", " click", "hover", ""}) {
      expectStep({{key, word}}, false);
    }
  }
}

TEST(ValidateBatchSteps, AcceptsAStepByTheFirstWordThatIsNotEmpty) {
  for (const char* step : {R"({"action":"click","tool":"scope","name":"scope"})",
                           R"({"action":"","tool":"click","name":"scope"})",
                           R"({"action":"","tool":"","name":"click"})",
                           R"({"action":null,"tool":"click"})", R"({"action":"click","tool":5})",
                           // A nested batch brings its steps in its arguments, or itself.
                           R"({"action":"batch","steps":[{"action":"click"}]})",
                           R"({"tool":"browser_batch","steps":[{"action":"click"}]})",
                           R"({"action":"batch","arguments":{"steps":[{"action":"click"}]}})",
                           R"({"action":"batch","arguments":[],"steps":[{"action":"click"}]})",
                           R"({"action":"batch","arguments":"x","steps":[{"action":"click"}]})"}) {
    expectStep(json::parse(step), true);
  }
}

TEST(ValidateBatchSteps, RefusesEveryOtherStep) {
  for (const char* step :
       {R"({})", R"("click")", R"(["click"])", "null", "7",
        R"({"action":"scope","tool":"click","name":"click"})", R"({"tool":"scope","name":"click"})",
        R"({"action":"","tool":"","name":""})", R"({"action":5,"tool":"click"})",
        R"({"action":["click"]})", R"({"action":true})", R"({"action":"","tool":{}})",
        // What a plain step may not carry.
        R"({"action":"click","arguments":{"ref":"e4"}})", R"({"action":"click","arguments":null})",
        R"({"action":"click","steps":[{"action":"click"}]})", R"({"action":"read","steps":null})",
        R"({"action":"batch"})", R"({"action":"batch","steps":[{"action":"scope"}]})",
        R"({"action":"batch","arguments":{"steps":[]},"steps":[{"action":"click"}]})",
        R"({"action":"batch","arguments":{},"steps":[{"action":"click"}]})"}) {
    expectStep(json::parse(step), false);
  }
}

TEST(ValidateBatchSteps, NeedsAListOfOneToThirtyTwo) {
  for (const char* arguments : {"{}", "[]", "null", R"({"steps":[]})",
                                R"({"steps":{"action":"click"}})", R"([{"action":"click"}])"}) {
    EXPECT_FALSE(validateBatchSteps(json::parse(arguments), 0)) << arguments;
  }
  for (const std::size_t count : {1U, 32U, 33U}) {
    EXPECT_EQ(validateBatchSteps({{"steps", json(count, click)}}, 0), count <= 32) << count;
  }
}

// A batch with `levels` further batches inside, one in the other.
json nestedBatch(int levels, bool inArguments) {
  json batch = {{"steps", {click}}};
  for (; levels > 0; --levels) {
    json step = inArguments ? json{{"arguments", std::move(batch)}} : std::move(batch);
    step["action"] = "batch";
    batch = {{"steps", json::array({std::move(step)})}};
  }
  return batch;
}

TEST(ValidateBatchSteps, AllowsFourBatchesInsideTheFirst) {
  for (const bool inArguments : {false, true}) {
    for (int levels = 0; levels < 7; ++levels) {
      for (int depth = 0; depth < 7; ++depth) {
        EXPECT_EQ(validateBatchSteps(nestedBatch(levels, inArguments), depth), levels + depth <= 4)
            << levels << " " << depth;
      }
    }
  }
}

// As wide as it may be on every level, as far as one MiB goes.
json wideBatch(int levels) {
  json step = click;
  if (levels > 0) {
    step = wideBatch(levels - 1);
    step["action"] = "batch";
  }
  return {{"steps", json(32, step)}};
}

TEST(ValidateBatchSteps, TakesMillisecondsForOneMib) {
  const json batch = wideBatch(2);
  ASSERT_GT(batch.dump().size(), 500'000U);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(validateBatchSteps(batch, 0));
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - before;
  EXPECT_LT(spent.count(), 2.0);  // unoptimized and with sanitizers; milliseconds otherwise
}

TEST(NavigateAction, IsTheNamedOneElseThatOfTheAddress) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({})", "tabs"},
      {R"({"url":" "})", "goto"},
      {R"({"url":""})", "tabs"},
      {R"({"url":5})", "tabs"},
      {R"({"action":"","url":"https://a/"})", "goto"},
      {R"({"action":5,"url":"https://a/"})", "goto"},
      {R"({"action":["back"]})", "tabs"},
      {R"({"action":"forward","url":"https://a/"})", "forward"},
  };
  for (const auto& [arguments, action] : cases) {
    EXPECT_EQ(navigateAction(json::parse(arguments)), action) << arguments;
  }
}

TEST(IsNavigateAction, KnowsTheSeven) {
  for (const char* action : {"goto", "back", "reload", "tabs", "switch", "new", "close"}) {
    EXPECT_TRUE(isNavigateAction(action)) << action;
  }
  for (const char* action : {"", "Back", " back", "forward"}) {
    EXPECT_FALSE(isNavigateAction(action)) << action;
  }
}

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
