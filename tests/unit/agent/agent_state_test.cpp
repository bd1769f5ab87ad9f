#include "agent/agent_state.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "support/idle_child.h"
#include "support/run_threads.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

// --- The current agent ---

TEST(CurrentAgent, IsNoneAtFirst) {
  EXPECT_EQ(currentAgentPort(), 0);
  EXPECT_EQ(candidateAgentPort(), 0);
  EXPECT_FALSE(stopIdleAgent(tickCountMs()));
  stopOwnedAgent(0);
  stopOwnedAgent(1);
}

TEST(CurrentAgent, FoundOnesReplaceEachOther) {
  adoptFoundAgent(8092);
  EXPECT_EQ(currentAgentPort(), 8092);
  adoptFoundAgent(8091);
  EXPECT_EQ(candidateAgentPort(), 8091);
}

TEST(CurrentAgent, AFoundOneIsNeverStopped) {
  adoptFoundAgent(8092);
  stopOwnedAgent(0);
  EXPECT_EQ(currentAgentPort(), 8092);
  cancelAllAgentRequests();
  EXPECT_EQ(currentAgentPort(), 8092);
}

TEST(CurrentAgent, AnOwnedOneIsNotReplacedByAFoundOne) {
  const std::uint64_t serial = adoptOwnedAgent(idleChild(), 8090);
  EXPECT_NE(serial, 0U);
  adoptFoundAgent(8091);
  EXPECT_EQ(currentAgentPort(), 8090);
  stopOwnedAgent(serial);
  EXPECT_EQ(currentAgentPort(), 0);
  adoptFoundAgent(8091);
  EXPECT_EQ(currentAgentPort(), 8091);
}

TEST(CurrentAgent, IsForgottenWhenOurChildHasEnded) {
  OwnedProcess child = idleChild();
  const OwnedProcess watched = duplicateProcess(child);
  (void)adoptOwnedAgent(std::move(child), 8090);
  EXPECT_EQ(candidateAgentPort(), 8090);
  terminateProcess(watched);
  ASSERT_TRUE(waitForExit(watched, 10'000));
  EXPECT_EQ(currentAgentPort(), 8090);  // nobody has looked yet
  EXPECT_EQ(candidateAgentPort(), 0);
  EXPECT_EQ(currentAgentPort(), 0);
}

TEST(CurrentAgent, StoppingEndsTheChildOfThatNumberOnly) {
  OwnedProcess first = idleChild();
  const OwnedProcess watchedFirst = duplicateProcess(first);
  const std::uint64_t firstSerial = adoptOwnedAgent(std::move(first), 8090);
  OwnedProcess second = idleChild();
  const OwnedProcess watchedSecond = duplicateProcess(second);
  const std::uint64_t secondSerial = adoptOwnedAgent(std::move(second), 8091);
  EXPECT_TRUE(waitForExit(watchedFirst, 10'000));  // replaced
  stopOwnedAgent(firstSerial);
  EXPECT_FALSE(waitForExit(watchedSecond, 0));
  EXPECT_EQ(currentAgentPort(), 8091);
  stopOwnedAgent(secondSerial);
  EXPECT_TRUE(waitForExit(watchedSecond, 10'000));
  EXPECT_EQ(currentAgentPort(), 0);
}

TEST(CurrentAgent, AChildThatComesTooLateIsEndedAtOnce) {
  cancelAllAgentRequests();
  OwnedProcess child = idleChild();
  const OwnedProcess watched = duplicateProcess(child);
  EXPECT_EQ(adoptOwnedAgent(std::move(child), 8090), 0U);
  EXPECT_TRUE(waitForExit(watched, 10'000));
  EXPECT_EQ(currentAgentPort(), 0);
}

// --- The idle stop ---

// Our own clock: it begins with the first look, which counts as activity, as does a long gap.
class IdleStop : public testing::Test {
 protected:
  IdleStop() { look(0); }
  ~IdleStop() override { stopOwnedAgent(serial_); }

  bool look(std::uint64_t afterMs) { return stopIdleAgent(start_ + afterMs); }
  // Looks every 5 s from one moment up to, and not at, another. False when the agent was stopped.
  bool staysUntil(std::uint64_t from, std::uint64_t to) {
    for (std::uint64_t at = from; at < to; at += 5000) {
      if (look(at)) return false;
    }
    return true;
  }

  const std::uint64_t serial_ = adoptOwnedAgent(idleChild(), 8090);
  const std::uint64_t start_ = tickCountMs() - 200'000;
};

TEST_F(IdleStop, ComesAfterAMinute) {
  EXPECT_TRUE(staysUntil(5000, 60'000));
  EXPECT_FALSE(look(59'999));
  EXPECT_EQ(currentAgentPort(), 8090);
  EXPECT_TRUE(look(60'000));
  EXPECT_EQ(currentAgentPort(), 0);
  EXPECT_FALSE(look(65'000));
}

TEST_F(IdleStop, TakesAGapForSleep) {
  EXPECT_TRUE(staysUntil(5000, 50'001));
  EXPECT_FALSE(look(50'000 + 15'001));  // the minute begins anew
  EXPECT_TRUE(staysUntil(65'001 + 5000, 65'001 + 60'000));
  EXPECT_TRUE(look(65'001 + 60'000));
}

TEST_F(IdleStop, TakesNoShorterGapForSleep) {
  EXPECT_TRUE(staysUntil(5000, 50'001));
  EXPECT_TRUE(look(50'000 + 15'000));
}

TEST_F(IdleStop, WaitsForATurnAndItsEndIsActivity) {
  std::optional<RunningTurn> turn(std::in_place);
  EXPECT_TRUE(staysUntil(5000, 195'000));
  const std::uint64_t before = tickCountMs() - start_;
  turn.reset();
  const std::uint64_t after = tickCountMs() - start_;
  EXPECT_TRUE(staysUntil(195'000, before + 59'999));
  EXPECT_FALSE(look(before + 59'999));
  EXPECT_TRUE(look(after + 60'000));
}

TEST_F(IdleStop, WaitsForTheLastOfSeveralTurns) {
  std::optional<RunningTurn> first(std::in_place);
  std::optional<RunningTurn> second(std::in_place);
  first.reset();
  EXPECT_TRUE(staysUntil(5000, 290'000));
  second.reset();
  EXPECT_TRUE(look(290'000));
}

TEST_F(IdleStop, BeginsAnewWithActivity) {
  EXPECT_TRUE(staysUntil(5000, 60'000));
  const std::uint64_t before = tickCountMs() - start_;
  touchAgentActivity();
  const std::uint64_t after = tickCountMs() - start_;
  EXPECT_TRUE(staysUntil(60'000, before + 59'999));
  EXPECT_FALSE(look(before + 59'999));
  EXPECT_TRUE(look(after + 60'000));
}

TEST_F(IdleStop, TakesActivityAfterTheLookForActivity) {
  EXPECT_TRUE(staysUntil(5000, 60'000));
  touchAgentActivity();  // by another thread, when the time of the look had been read already
  EXPECT_FALSE(look(60'000));
}

TEST_F(IdleStop, CountsATurnUnderAStoppedAgentOnlyForItself) {
  std::optional<RunningTurn> old(std::in_place);
  stopOwnedAgent(serial_);
  const std::uint64_t serial = adoptOwnedAgent(idleChild(), 8090);
  const RunningTurn current;
  old.reset();  // must not take the new turn's count with it
  EXPECT_TRUE(staysUntil(5000, 400'000));
  stopOwnedAgent(serial);
}

// --- Starting ---

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
    if (joinStart(seen, error) == StartTurn::leader) {
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
      if (joinStart(finishedStarts(), error) != StartTurn::leader) continue;
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
  ASSERT_EQ(joinStart(0, error), StartTurn::leader);
  finishStart("");
  error = "before";
  EXPECT_EQ(joinStart(0, error), StartTurn::follower);
  EXPECT_EQ(error, "");
  EXPECT_EQ(joinStart(1, error), StartTurn::leader);
}

TEST(JoinStart, EndsWithTheHost) {
  std::string error;
  ASSERT_EQ(joinStart(0, error), StartTurn::leader);
  TestThread waiting([] {
    std::string ignored;
    EXPECT_EQ(joinStart(0, ignored), StartTurn::ending);
  });
  cancelAllAgentRequests();
  waiting.join();
  EXPECT_EQ(joinStart(0, error), StartTurn::ending);
}

TEST(SpawnPermit, IsGrantedUntilTheHostEnds) {
  { EXPECT_TRUE(SpawnPermit().granted()); }
  cancelAllAgentRequests();
  EXPECT_FALSE(SpawnPermit().granted());
}

TEST(SpawnPermit, HoldsUpTheEndUntilTheChildIsAdopted) {
  std::optional<SpawnPermit> permit(std::in_place);
  TestThread ending([] { cancelAllAgentRequests(); });
  while (waitUnlessEnding(0)) sleepMs(1);
  OwnedProcess child = idleChild();
  const OwnedProcess watched = duplicateProcess(child);
  (void)adoptOwnedAgent(std::move(child), 8090);
  permit.reset();
  ending.join();
  EXPECT_TRUE(waitForExit(watched, 10'000));
}

// --- Turns ---

TEST(RunningTurn, IsStoppedByAStopThatComesAfterIt) {
  stopTurns();
  const RunningTurn first;
  EXPECT_FALSE(first.stopped());
  EXPECT_TRUE(first.beginRequest());
  const RunningTurn second;
  stopTurns();
  const RunningTurn third;
  EXPECT_TRUE(first.stopped());
  EXPECT_TRUE(second.stopped());
  EXPECT_FALSE(second.beginRequest());
  EXPECT_FALSE(third.stopped());
  EXPECT_TRUE(third.beginRequest());
}

TEST(RunningTurn, IsStoppedByTheEndOfTheHost) {
  const RunningTurn turn;
  cancelAllAgentRequests();
  EXPECT_TRUE(turn.stopped());
  EXPECT_FALSE(turn.beginRequest());
}

TEST(CancelRequested, StaysUntilATurnBeginsItsRequest) {
  EXPECT_FALSE(cancelRequested());
  stopTurns();
  EXPECT_TRUE(cancelRequested());
  const RunningTurn turn;
  EXPECT_TRUE(cancelRequested());
  EXPECT_TRUE(turn.beginRequest());
  EXPECT_FALSE(cancelRequested());
  stopTurns();
  EXPECT_FALSE(turn.beginRequest());
  EXPECT_TRUE(cancelRequested());
}

// --- The end ---

TEST(WaitUnlessEnding, WaitsAndIsCutShortByTheEnd) {
  const std::uint64_t before = tickCountMs();
  EXPECT_TRUE(waitUnlessEnding(50));
  EXPECT_GE(tickCountMs() - before + 16, 50U);  // the tick count may be that coarse
  TestThread waiting([] { EXPECT_FALSE(waitUnlessEnding(60'000)); });
  cancelAllAgentRequests();
  waiting.join();
  EXPECT_LT(tickCountMs() - before, 30'000U);
  EXPECT_FALSE(waitUnlessEnding(0));
}

TEST(CancelAll, EndsTheOwnedAgent) {
  OwnedProcess child = idleChild();
  const OwnedProcess watched = duplicateProcess(child);
  (void)adoptOwnedAgent(std::move(child), 8090);
  cancelAllAgentRequests();
  EXPECT_TRUE(waitForExit(watched, 0));  // it was waited for
  EXPECT_EQ(currentAgentPort(), 0);
  cancelAllAgentRequests();
}

}  // namespace
}  // namespace media::win::chrome_inspect
