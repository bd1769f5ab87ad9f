#include "chat/turn_end.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using Events = std::vector<std::string>;

std::string done(bool ok, const std::string& error) {
  return json{{"method", "agentDone"}, {"args", {"r", ok, error}}}.dump();
}

const std::string complete =
    R"({"args":[{"chatSessionId":"c","runId":"r","text":"all"}],"method":"completeAssistantText"})";

template <class Use>
Events eventsOf(const Use& use) {
  CapturedOutput output;
  {
    TurnEnd end("r");
    use(end);
  }
  return eventsIn(output.finish());
}

TEST(TurnEnd, SucceedsWithTextAndUsage) {
  EXPECT_EQ(eventsOf([](TurnEnd& end) {
              end.succeed("c", "all", {{"total_tokens", 3}});
            }),
            (Events{complete, R"({"args":[{"total_tokens":3}],"method":"setTurnLlmUsage"})",
                    done(true, "")}));
}

TEST(TurnEnd, LeavesOutUsageThatSaysNothing) {
  for (const json& usage : {json(nullptr), json::object(), json::array({1}), json("x"), json(5)}) {
    EXPECT_EQ(eventsOf([&usage](TurnEnd& end) { end.succeed("c", "all", usage); }),
              (Events{complete, done(true, "")}))
        << usage;
  }
}

TEST(TurnEnd, FailsWithATextInUtf8) {
  EXPECT_EQ(eventsOf([](TurnEnd& end) { end.fail("cancelled"); }),
            Events{done(false, "cancelled")});
  EXPECT_EQ(eventsOf([](TurnEnd& end) { end.fail("a\xFF"); }),
            Events{done(false, "a\xEF\xBF\xBD")});
  EXPECT_EQ(eventsOf([](TurnEnd& end) { end.fail(std::string(5000, 'x')); }),
            Events{done(false, std::string(4096, 'x'))});
}

TEST(TurnEnd, SaysItOnce) {
  EXPECT_EQ(eventsOf([](TurnEnd& end) {
              end.fail("first");
              end.fail("second");
              end.succeed("c", "all", nullptr);
            }),
            Events{done(false, "first")});
  EXPECT_EQ(eventsOf([](TurnEnd& end) {
              end.succeed("c", "all", nullptr);
              end.fail("late");
              end.succeed("c", "again", nullptr);
            }),
            (Events{complete, done(true, "")}));
}

TEST(TurnEnd, IsNotForgotten) {
  EXPECT_EQ(eventsOf([](TurnEnd&) {}), Events{done(false, "agent turn failed")});
}

}  // namespace
}  // namespace media::win::chrome_inspect
