#include "agent/running_turns.h"

#include "agent/agent_end.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

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

TEST(RunningTurn, IsEndedByEachStopWhileItRuns) {
  int ended = 0;
  const auto end = [&ended] { ++ended; };
  stopTurns();
  {
    const RunningTurn turn(end);
    const RunningTurn other(end);
    EXPECT_EQ(ended, 0);
    stopTurns();
    EXPECT_EQ(ended, 2);
    cancelAllAgentRequests();
    EXPECT_EQ(ended, 4);
  }
  stopTurns();
  EXPECT_EQ(ended, 4);
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

}  // namespace
}  // namespace media::win::chrome_inspect
