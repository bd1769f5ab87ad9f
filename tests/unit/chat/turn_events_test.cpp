#include "chat/turn_events.h"

#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string done(bool ok, const std::string& error) {
  return "agentDone " + json{"r", ok, error}.dump();
}

const std::string begun = R"(setBusy [true]; agentStarted [{"id":"r","name":"n"}])";
const std::string complete = R"(completeAssistantText [{"text":"all"}]; )";

struct UseCase {
  const char* name;
  void (*use)(TurnEvents& events);
  std::string sent;
};

const UseCase useCases[] = {
    {"succeeds with its usage",
     [](TurnEvents& e) {
       e.succeed("c", "all", {{"total_tokens", 3}});
     },
     complete + R"(setTurnLlmUsage [{"total_tokens":3}]; )" + done(true, "")},
    {"fails", [](TurnEvents& e) { e.fail("x"); }, done(false, "x")},
    {"fails with what is no UTF-8", [](TurnEvents& e) { e.fail("a\xFF"); },
     done(false, "a\xEF\xBF\xBD")},
    {"fails with a long text", [](TurnEvents& e) { e.fail(std::string(5000, 'x')); },
     done(false, std::string(4096, 'x'))},
    {"is not forgotten",
     [](TurnEvents& e) {
       e.begin({{"name", "n"}});
     },
     begun + "; " + done(false, "agent turn failed")},
    {"never began", [](TurnEvents&) {}, ""},
    {"is cancelled before it begins",
     [](TurnEvents& e) {
       e.cancel();
       e.fail("its own end");
     },
     done(false, "its own end")},
    {"says nothing after its end",
     [](TurnEvents& e) {
       e.begin({{"name", "n"}});
       e.send("x", {1});
       e.cancel();
       e.send("x", {2});
       e.succeed("c", "all", nullptr);
       e.fail("late");
       e.cancel();
     },
     begun + "; x [1]; " + done(false, "cancelled")},
    {"ends well once",
     [](TurnEvents& e) {
       e.succeed("c", "all", nullptr);
       e.cancel();
       e.succeed("c", "again", nullptr);
     },
     complete + done(true, "")},
};

TEST(TurnEvents, EndOnce) {
  for (const UseCase& c : useCases) {
    SCOPED_TRACE(c.name);
    CapturedOutput output;
    {
      TurnEvents events("r");
      c.use(events);
    }
    EXPECT_EQ(briefEvents(output.finish()), c.sent);
  }
}

TEST(TurnEvents, LeaveOutUsageThatSaysNothing) {
  for (const json& usage : {json(nullptr), json::object(), json::array({1}), json("x"), json(5)}) {
    CapturedOutput output;
    TurnEvents("r").succeed("c", "all", usage);
    EXPECT_EQ(briefEvents(output.finish()), complete + done(true, "")) << usage;
  }
}

TEST(TurnEvents, EndWithNoneOnItsWay) {
  CapturedOutput output;
  TurnEvents events("r");
  events.begin({{"name", "n"}});
  TestThread sender([&events] {
    for (int i = 0; i < 2000; ++i) events.send("x", {i});
  });
  output.waitFor(50);
  events.cancel();
  sender.join();
  const CapturedOutput::Frames frames = output.finish();
  EXPECT_EQ(briefEvents({frames.back()}), done(false, "cancelled"));
}

}  // namespace
}  // namespace media::win::chrome_inspect
