#include "agent/agent_starts.h"

#include "agent/agent_end.h"
#include "agent/current_agent.h"
#include "platform/clock.h"
#include "support/child_probe.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(JoinStart, LetsOneStartAndTheOthersWait) {
  constexpr int callers = 8;
  std::atomic<int> arrived = 0;
  std::atomic<int> leaders = 0;
  std::atomic<int> followers = 0;
  runThreads(callers, [&](int) {
    const std::uint64_t seen = finishedStarts();
    // All have looked before anybody starts.
    ++arrived;
    while (arrived < callers) sleepMs(1);
    std::string error = "untouched";
    if (joinStart(seen, error) == StartRole::leader) {
      ++leaders;
      EXPECT_EQ(error, "untouched");
      finishStart("no luck");
    } else {
      ++followers;
      EXPECT_EQ(error, "no luck");
    }
  });
  EXPECT_EQ(leaders, 1);
  EXPECT_EQ(followers, callers - 1);
  EXPECT_EQ(finishedStarts(), 1U);
}

TEST(JoinStart, NeverHasTwoLeadersAtATime) {
  std::atomic<int> starting = 0;
  std::atomic<int> led = 0;
  runThreads(4, [&](int) {
    for (int i = 0; i < 500; ++i) {
      std::string error;
      if (joinStart(finishedStarts(), error) != StartRole::leader) continue;
      EXPECT_EQ(++starting, 1);
      ++led;
      --starting;
      finishStart("");
    }
  });
  EXPECT_EQ(finishedStarts(), static_cast<std::uint64_t>(led));
}

TEST(JoinStart, MakesALeaderOfWhoHasSeenTheLastStart) {
  std::string error;
  ASSERT_EQ(joinStart(0, error), StartRole::leader);
  finishStart("");
  error = "before";
  EXPECT_EQ(joinStart(0, error), StartRole::follower);
  EXPECT_EQ(error, "");
  EXPECT_EQ(joinStart(1, error), StartRole::leader);
}

TEST(JoinStart, EndsWithTheHost) {
  std::string error;
  ASSERT_EQ(joinStart(0, error), StartRole::leader);
  TestThread waiting([] {
    std::string ignored;
    EXPECT_EQ(joinStart(0, ignored), StartRole::ending);
  });
  cancelAllAgentRequests();
  waiting.join();
  EXPECT_EQ(joinStart(0, error), StartRole::ending);
}

TEST(SpawnPermit, HoldsUpTheEndUntilTheChildIsAdopted) {
  std::optional<SpawnPermit> permit(std::in_place);
  EXPECT_TRUE(permit->granted());
  TestThread ending([] { cancelAllAgentRequests(); });
  while (waitUnlessEnding(0)) sleepMs(1);
  OwnedProcess child = idleChild();
  const OwnedProcess watched = duplicateProcess(child);
  EXPECT_EQ(adoptOwnedAgent(std::move(child), 8090), 0U);
  EXPECT_EQ(currentAgentPort(), 0);
  permit.reset();
  ending.join();
  EXPECT_TRUE(waitForExit(watched, 10'000));
  EXPECT_FALSE(SpawnPermit().granted());
}

}  // namespace
}  // namespace media::win::chrome_inspect
