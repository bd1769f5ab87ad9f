#include "browser_tools/step_checks.h"

#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct StepCase {
  const char* step;
  bool accepted;
};

const StepCase stepCases[] = {
    {R"({"action":"read"})", true},
    {R"({"action":"find"})", true},
    {R"({"action":"click","ref":"e4"})", true},
    {R"({"action":"type","text":"x","ref":"e4"})", true},
    {R"({"action":"select"})", true},
    {R"({"action":"wait"})", true},
    {R"({"tool":"browser_read"})", true},
    {R"({"tool":"browser_find"})", true},
    {R"({"tool":"browser_click","ref":"e4"})", true},
    {R"({"name":"browser_type"})", true},
    {R"({"name":"browser_select"})", true},
    {R"({"action":"browser_click"})", true},
    {R"({"tool":"click"})", true},
    {R"({"name":"wait"})", true},
    // A scope is no step, and neither is anything else.
    {R"({"action":"scope"})", false},
    {R"({"tool":"browser_scope"})", false},
    {R"({"action":"navigate"})", false},
    {R"({"tool":"browser_navigate"})", false},
    {R"({"action":"browser_wait"})", false},
    {R"({"action":"browser_"})", false},
    {R"({"action":"browser_browser_read"})", false},
    {R"({"action":"Click"})", false},
    {R"({"action":" click"})", false},
    {R"({"action":"hover"})", false},
    {R"({"action":""})", false},
    {R"({})", false},
    // The first word that is not empty counts.
    {R"({"action":"click","tool":"scope","name":"scope"})", true},
    {R"({"action":"scope","tool":"click","name":"click"})", false},
    {R"({"action":"","tool":"click","name":"scope"})", true},
    {R"({"action":"","tool":"","name":"click"})", true},
    {R"({"tool":"","name":"click"})", true},
    {R"({"tool":"scope","name":"click"})", false},
    {R"({"action":"","tool":"","name":""})", false},
    {R"({"action":null,"tool":"click"})", true},
    // A word that is no text is refused, unless another came before it.
    {R"({"action":5,"tool":"click"})", false},
    {R"({"action":["click"]})", false},
    {R"({"action":true})", false},
    {R"({"action":"","tool":{}})", false},
    {R"({"action":"click","tool":5})", true},
    // What a plain step may not carry.
    {R"({"action":"click","arguments":{"ref":"e4"}})", false},
    {R"({"action":"click","arguments":null})", false},
    {R"({"action":"click","steps":[{"action":"click"}]})", false},
    {R"({"action":"read","steps":null})", false},
    // A step must be an object.
    {R"("click")", false},
    {R"(["click"])", false},
    {R"(null)", false},
    {R"(7)", false},
    // A nested batch brings its steps in its arguments, or itself.
    {R"({"action":"batch","steps":[{"action":"click"}]})", true},
    {R"({"tool":"browser_batch","steps":[{"action":"click"}]})", true},
    {R"({"action":"batch","arguments":{"steps":[{"action":"click"}]}})", true},
    {R"({"action":"batch","arguments":{"steps":[]},"steps":[{"action":"click"}]})", false},
    {R"({"action":"batch","arguments":{},"steps":[{"action":"click"}]})", false},
    {R"({"action":"batch","arguments":[],"steps":[{"action":"click"}]})", true},
    {R"({"action":"batch","arguments":"x","steps":[{"action":"click"}]})", true},
    {R"({"action":"batch"})", false},
    {R"({"action":"batch","steps":[{"action":"scope"}]})", false},
};

TEST(ValidateBatchSteps, JudgesEachStep) {
  for (const StepCase& c : stepCases) {
    const json step = json::parse(c.step);
    const json click = {{"action", "click"}};
    EXPECT_EQ(validateBatchSteps({{"steps", {step}}}, 0), c.accepted) << c.step;
    EXPECT_EQ(validateBatchSteps({{"steps", {click, step}}}, 0), c.accepted) << c.step;
    EXPECT_EQ(validateBatchSteps({{"steps", {step, click}}}, 0), c.accepted) << c.step;
  }
}

TEST(ValidateBatchSteps, NeedsAListOfOneToThirtyTwo) {
  for (const char* arguments :
       {"{}", "[]", "null", "\"steps\"", R"({"steps":[]})", R"({"steps":{"action":"click"}})",
        R"({"steps":"click"})", R"({"steps":null})", R"([{"action":"click"}])"}) {
    EXPECT_FALSE(validateBatchSteps(json::parse(arguments), 0)) << arguments;
  }
  json steps = json::array();
  for (std::size_t count = 1; count <= 40; ++count) {
    steps.push_back({{"action", "click"}});
    EXPECT_EQ(validateBatchSteps({{"steps", steps}}, 0), count <= 32) << count;
  }
}

// A batch with `levels` further batches inside, one in the other.
json nestedBatch(int levels, bool inArguments) {
  json batch = {{"steps", {{{"action", "click"}}}}};
  for (; levels > 0; --levels) {
    json step = inArguments ? json{{"arguments", std::move(batch)}} : std::move(batch);
    step["action"] = "batch";
    batch = {{"steps", json::array({std::move(step)})}};
  }
  return batch;
}

TEST(ValidateBatchSteps, AllowsFourBatchesInsideTheFirst) {
  for (const bool inArguments : {false, true}) {
    for (int levels = 0; levels < 8; ++levels) {
      const json batch = nestedBatch(levels, inArguments);
      for (int depth = 0; depth < 7; ++depth) {
        EXPECT_EQ(validateBatchSteps(batch, depth), levels + depth <= 4) << levels << " " << depth;
      }
    }
  }
  EXPECT_FALSE(validateBatchSteps(nestedBatch(900, true), 0));
}

// As wide as it may be on every level, as far as one MiB goes. A text next to each innermost step
// fills it up.
json wideBatch(int levels, const std::string& filler) {
  json steps = json::array();
  for (int i = 0; i < 32; ++i) {
    if (levels == 0) {
      steps.push_back({{"action", "click"}, {"text", filler}});
    } else {
      json step = wideBatch(levels - 1, filler);
      step["action"] = "batch";
      steps.push_back(std::move(step));
    }
  }
  return {{"steps", std::move(steps)}};
}

TEST(ValidateBatchSteps, TakesMillisecondsForOneMib) {
  for (const json& batch : {wideBatch(1, std::string(1000, 'x')), wideBatch(2, "")}) {
    ASSERT_GT(batch.dump().size(), 900'000U);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_TRUE(validateBatchSteps(batch, 0));
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - before;
    EXPECT_LT(spent.count(), 2.0);  // unoptimized and with sanitizers; milliseconds otherwise
  }
}

struct NavigateCase {
  const char* arguments;
  const char* action;
  bool allowed;
};

const NavigateCase navigateCases[] = {
    {R"({})", "tabs", true},
    {R"({"url":"https://a/"})", "goto", true},
    {R"({"url":" "})", "goto", true},
    {R"({"url":""})", "tabs", true},
    {R"({"url":5})", "tabs", true},
    {R"({"url":null})", "tabs", true},
    {R"({"action":"tabs"})", "tabs", true},
    {R"({"action":"new"})", "new", true},
    {R"({"action":"switch"})", "switch", true},
    {R"({"action":"close"})", "close", true},
    {R"({"action":"reload"})", "reload", true},
    {R"({"action":"back"})", "back", true},
    {R"({"action":"goto"})", "goto", true},
    {R"({"action":"goto","url":""})", "goto", true},
    {R"({"action":"","url":"https://a/"})", "goto", true},
    {R"({"action":5,"url":"https://a/"})", "goto", true},
    {R"({"action":["back"]})", "tabs", true},
    {R"({"action":"Back"})", "Back", false},
    {R"({"action":"forward"})", "forward", false},
    {R"({"action":"forward","url":"https://a/"})", "forward", false},
    {R"({"action":" back"})", " back", false},
};

TEST(NavigateAction, IsTheNamedOneElseThatOfTheAddress) {
  for (const NavigateCase& c : navigateCases) {
    const std::string action = navigateAction(json::parse(c.arguments));
    EXPECT_EQ(action, c.action) << c.arguments;
    EXPECT_EQ(isNavigateAction(action), c.allowed) << c.arguments;
  }
  EXPECT_FALSE(isNavigateAction(""));
}

}  // namespace
}  // namespace media::win::chrome_inspect
