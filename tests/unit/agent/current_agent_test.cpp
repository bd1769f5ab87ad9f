#include "agent/current_agent.h"

#include "agent/agent_end.h"
#include "agent/running_turns.h"
#include "platform/clock.h"
#include "support/child_probe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(CurrentAgent, IsNoneOrFoundAndThenNeverStopped) {
  EXPECT_FALSE(candidateAgent());
  EXPECT_FALSE(stopIdleAgent(tickCountMs()));
  stopOwnedAgent(1);
  EXPECT_EQ(adoptFoundAgent(8092), AgentId{8092});
  EXPECT_EQ(currentAgent(), AgentId{8092});
  EXPECT_EQ(adoptFoundAgent(8091), AgentId{8091});
  stopOwnedAgent(0);
  EXPECT_FALSE(stopUnusedAgent());
  cancelAllAgentRequests();
  EXPECT_EQ(candidateAgent(), AgentId{8091});
  EXPECT_FALSE(isGoneAgent({8092}));
}

TEST(CurrentAgent, AnOwnedOneIsNotReplacedByAFoundOne) {
  const AgentId owned{8090, adoptOwnedAgent(idleChild(), 8090)};
  EXPECT_NE(owned.serial, 0U);
  EXPECT_EQ(adoptFoundAgent(8091), AgentId{8091});
  EXPECT_EQ(adoptFoundAgent(8090), owned);
  EXPECT_EQ(currentAgent(), owned);
  EXPECT_FALSE(isGoneAgent(owned));
  EXPECT_EQ(stopUnusedAgent(), owned);
  EXPECT_FALSE(currentAgent());
  EXPECT_TRUE(isGoneAgent(owned));
  EXPECT_EQ(adoptFoundAgent(8090), AgentId{8090});
  EXPECT_TRUE(isGoneAgent(owned));
}

TEST(CurrentAgent, IsForgottenWhenOurChildHasEnded) {
  OwnedProcess child = idleChild();
  const OwnedProcess watched = duplicateProcess(child);
  (void)adoptOwnedAgent(std::move(child), 8090);
  EXPECT_EQ(candidateAgent().port, 8090);
  terminateProcess(watched);
  ASSERT_TRUE(waitForExit(watched, 10'000));
  EXPECT_EQ(currentAgentPort(), 8090);  // nobody has looked yet
  EXPECT_EQ(candidateAgent().port, 0);
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

// Our own clock: it begins with the first look, which counts as activity, as does a long gap.
class IdleStop : public testing::Test {
 protected:
  IdleStop() { look(0); }
  ~IdleStop() override { stopOwnedAgent(serial_); }

  bool look(std::uint64_t afterMs) {
    const AgentId ended = stopIdleAgent(start_ + afterMs);
    EXPECT_TRUE(!ended || ended == (AgentId{8090, serial_}));
    return static_cast<bool>(ended);
  }
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

TEST(IdleWatch, CountsTheFirstGapFromItsOwnStart) {
  for (const bool slept : {false, true}) {
    const std::uint64_t serial = adoptOwnedAgent(idleChild(), 8090);
    const std::uint64_t start = tickCountMs();
    beginIdleWatch(start);
    const std::uint64_t firstLook = start + (slept ? 15'001 : 15'000);
    for (std::uint64_t at = firstLook; at < start + 60'000; at += 5000) {
      EXPECT_FALSE(stopIdleAgent(at));
    }
    EXPECT_EQ(static_cast<bool>(stopIdleAgent(start + 60'000)), !slept);
    stopOwnedAgent(serial);
  }
}

TEST_F(IdleStop, TakesAGapForSleep) {
  EXPECT_TRUE(staysUntil(5000, 50'001));
  EXPECT_FALSE(look(50'000 + 15'001));  // the minute begins anew
  EXPECT_TRUE(staysUntil(65'001 + 5000, 65'001 + 60'000));
  EXPECT_TRUE(look(65'001 + 60'000));
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

TEST_F(IdleStop, ComesAMinuteAfterTheLastActivity) {
  EXPECT_TRUE(staysUntil(5000, 60'000));
  EXPECT_FALSE(look(59'999));
  const std::uint64_t before = tickCountMs() - start_;
  touchAgentActivity();
  const std::uint64_t after = tickCountMs() - start_;
  EXPECT_TRUE(staysUntil(60'000, before + 59'999));
  EXPECT_FALSE(look(before + 59'999));
  EXPECT_TRUE(look(after + 60'000));
  EXPECT_EQ(currentAgentPort(), 0);
  EXPECT_FALSE(look(after + 65'000));
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

}  // namespace
}  // namespace media::win::chrome_inspect
