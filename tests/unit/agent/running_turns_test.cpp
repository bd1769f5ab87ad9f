#include "agent/running_turns.h"

#include <gtest/gtest.h>

#include "agent/agent_end.h"

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
