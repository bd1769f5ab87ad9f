#include "host/host_end.h"

#include "host/host_running.h"
#include "host/inspect_pipe.h"
#include "platform/clock.h"
#include "platform/named_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::tuple<const char*, std::uint32_t, bool, std::uint32_t> waitCases[] = {
    {"for an answer that takes its time", 10, false, lastWorkMs},
    {"for a browser that does not read", 10, true, lastRepliesMs},
    {"in long steps", 3000, true, 3000},
};

TEST(LastWait, EndsInTime) {
  for (const auto& [name, stepMs, outputIsBusy, endsAtMs] : waitCases) {
    LastWait wait;
    std::uint32_t ms = stepMs;
    while (wait.goesOn(stepMs, outputIsBusy)) ms += stepMs;
    EXPECT_EQ(ms, endsAtMs) << name;
  }
}

TEST(LastWait, CountsOnlyTheTimeInWhichTheOutputIsFree) {
  LastWait wait;
  for (int i = 0; i < 49; ++i) {
    ASSERT_TRUE(wait.goesOn(10, false));
    ASSERT_TRUE(wait.goesOn(20, true));
  }
  EXPECT_FALSE(wait.goesOn(10, false));
}

void blockForEver() {
  for (;;) sleepMs(60'000);
}

using Steps = std::vector<std::function<void()>>;

[[noreturn]] void endWith(const Steps& steps) {
  startEndGuard(200);
  endBy(steps);
}

TEST(EndByDeathTest, ComesInTimeWhicheverStepBlocks) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr std::size_t stepCount = 3;
  for (std::size_t blocked = 0; blocked <= stepCount; ++blocked) {
    Steps steps(stepCount, [] {});
    if (blocked < stepCount) steps[blocked] = blockForEver;
    EXPECT_EXIT(endWith(steps), testing::ExitedWithCode(0), "") << blocked;
  }
}

constexpr const char* pipeName = R"(\\.\pipe\morva-unit-inspect)";

TEST(InspectPipeServer, ServesNobodyOnceTheHostEnds) {
  hostRunning = false;
  runInspectPipeServer({.name = pipeName});  // returns
  OwnedStream pipe;
  EXPECT_TRUE(createPipeInstance(pipeName, pipe));
}

}  // namespace
}  // namespace media::win::chrome_inspect
