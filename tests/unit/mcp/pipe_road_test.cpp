#include "mcp/pipe_road.h"

#include "channel/framing.h"
#include "platform/clock.h"
#include "platform/named_pipe.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Of this process, as tests run beside each other.
const std::string pipeName = R"(\\.\pipe\morva-unit-test-)" + std::to_string(ownProcessId());
const char* const name = pipeName.c_str();
constexpr const char* noAnswer =
    "The browser did not answer in time. It may have done what was asked: look at the page before "
    "you call again, and split a long batch into several.";
constexpr const char* noPipe =
    "The browser is not running, or the assistant's extension is not connected: open the side "
    "panel once.";
constexpr const char* hostLeft =
    "The browser went away during the call. It may have done what was asked: look at the page "
    "before you call again.";

// Stands where the host is, for one client after another.
class PipeHost {
 public:
  using Answer = std::function<std::string(const json& request)>;  // empty: hangs up

  PipeHost(int clients, Answer answer)
      : thread_([clients, answer = std::move(answer)] {
          for (int i = 0; i < clients; ++i) serve(answer);
        }) {}

 private:
  static void serve(const Answer& answer) {
    OwnedStream pipe;
    ASSERT_TRUE(createPipeInstance(name, pipe) && connectPipeClient(pipe));
    json request;
    std::string error;
    ASSERT_TRUE(FrameReader(pipe.get()).next(request, error)) << error;
    if (const std::string body = answer(request); !body.empty()) {
      (void)writeFrame(pipe.get(), body);  // a client that gave up has gone
    }
    flushPipe(pipe.get());
    disconnectPipe(pipe.get());
  }

  TestThread thread_;
};

struct Asked {
  bool isAnswered = false;
  std::string text;  // the answer, or why there is none
};

// Asks with limits that no test reaches unless it is about them.
Asked ask(const json& command, std::uint32_t answerMs = 30'000, const OwnedSignal* given = nullptr,
          std::uint32_t busyMs = 30'000, std::uint32_t absentMs = 30'000) {
  OwnedSignal never;
  EXPECT_TRUE(makeSignal(never));
  JsonDocument reply;
  Asked asked;
  asked.isAnswered = askByPipe(command, reply, asked.text, given != nullptr ? *given : never,
                               {name, busyMs, absentMs, answerMs});
  if (asked.isAnswered) asked.text = reply.root().compactText();
  return asked;
}

TEST(AskByPipe, SendsEachCommandWithAnIdOfItsOwn) {
  constexpr int calls = 20;
  std::set<std::string> ids;
  const PipeHost host(calls, [&ids](const json& request) {
    const auto id = request.at("requestId").get<std::string>();
    EXPECT_TRUE(id.starts_with("mcp-") && id.size() > 32 && ids.insert(id).second) << id;
    EXPECT_EQ(request.at("command"), "c");
    return R"({"ok":true})";
  });
  for (int i = 0; i < calls; ++i) {
    const Asked asked = ask({{"command", "c"}});
    EXPECT_TRUE(asked.isAnswered);
    EXPECT_EQ(asked.text, R"({"ok":true})");
  }
}

TEST(AskByPipe, TakesAnswersOfAnySize) {
  const std::string large = "{\"text\":\"" + std::string(3 << 20, 'x') + "\"}";
  const PipeHost host(1, [&large](const json&) { return std::string(large); });
  EXPECT_EQ(ask({{"text", std::string(1'000'000, 'y')}}).text, large);
}

const std::pair<const char*, const char*> failureCases[] = {
    {"", hostLeft},
    {"{", "The browser's answer could not be read."},
    {R"({"type":"error","error":{"code":"TIMEOUT","message":"m"}})", noAnswer},
    {R"({"type":"error","error":{"code":"HOST_SHUTDOWN","message":"m"}})", noPipe},
    {R"({"type":"error","error":{"code":"EXTENSION_UNAVAILABLE","message":"m"}})", noPipe},
    {R"({"type":"error","error":{"code":"INVALID_REQUEST","message":"m"}})", "m"},
};

TEST(AskByPipe, SaysWhyThereIsNoAnswer) {
  for (const auto& [body, wanted] : failureCases) {
    const PipeHost host(1, [body = body](const json&) { return body; });
    const Asked asked = ask({{"command", "c"}});
    EXPECT_FALSE(asked.isAnswered);
    EXPECT_EQ(asked.text, wanted);
  }
}

TEST(AskByPipe, BelievesThatThereIsNoPipeAfterSomeTime) {
  constexpr std::uint32_t absentMs = 100;
  const std::uint64_t before = tickCountMs();
  EXPECT_EQ(ask({}, 30'000, nullptr, 30'000, absentMs).text, noPipe);
  EXPECT_GE(tickCountMs() - before + 16, absentMs);  // the clock's step
  const TestThread late([] {
    sleepMs(50);
    const PipeHost host(1, [](const json&) { return "{}"; });
  });
  EXPECT_TRUE(ask({}).isAnswered);  // a pipe that is there again in time is used
}

TEST(AskByPipe, ReturnsWhenItsCallIsGivenUp) {
  Gate asked;
  Gate over;
  const PipeHost host(2, [&](const json&) {
    asked.open();
    over.wait();
    return "{}";
  });
  OwnedSignal givenUp;
  ASSERT_TRUE(makeSignal(givenUp));
  {
    const TestThread cancels([&] {
      asked.wait();
      raiseSignal(givenUp);
    });
    const Asked outcome = ask({}, 30'000, &givenUp);
    EXPECT_FALSE(outcome.isAnswered);
    EXPECT_EQ(outcome.text, "");
  }
  const Asked cancelled = ask({}, 30'000, &givenUp);  // before it is connected, too
  EXPECT_FALSE(cancelled.isAnswered);
  over.open();
  EXPECT_EQ(ask({}).text, "{}");
}

TEST(AskByPipe, GivesUpASilentHost) {
  Gate over;
  const PipeHost host(1, [&](const json&) {
    over.wait();
    return "{}";
  });
  EXPECT_EQ(ask({}, 50).text, noAnswer);
  over.open();
}

TEST(AskByPipe, WaitsForItsTurnAndNotForEver) {
  OwnedStream pipe;
  ASSERT_TRUE(createPipeInstance(name, pipe));
  std::vector<OwnedStream> others(1);
  while (openPipe(name, others.back()) == PipeOpening::open) others.emplace_back();
  EXPECT_EQ(openPipe(name, others.back()), PipeOpening::busy);
  EXPECT_EQ(ask({}, 30'000, nullptr, 50, 10).text,
            "The browser is busy with calls of other programs. Try again in a moment.");
}

TEST(AskByPipe, RefusesWhatIsTooLargeForTheBrowser) {
  const Asked refused = ask({{"text", std::string(maxBrowserBody, 'x')}});
  EXPECT_EQ(refused.text, "The arguments are too large: those of one call may have at most 1 MiB.");
}

TEST(DoesPipeAnswer, SeesAHostThatRefuses) {
  EXPECT_FALSE(doesPipeAnswer(100, name));
  const PipeHost host(1, [](const json& request) {
    EXPECT_EQ(request.at("requestId"), "cht-");
    return R"({"type":"error"})";
  });
  EXPECT_TRUE(doesPipeAnswer(30'000, name));
}

}  // namespace
}  // namespace media::win::chrome_inspect
