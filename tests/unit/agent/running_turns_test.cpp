#include "agent/running_turns.h"

#include "agent/agent_end.h"
#include "agent/current_agent.h"
#include "agent/request_slots.h"
#include "platform/clock.h"
#include "support/child_probe.h"
#include "support/scripted_exchange.h"
#include "support/test_thread.h"
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
    EXPECT_TRUE(turn.stopped());
    EXPECT_FALSE(turn.beginRequest());
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

std::shared_ptr<ScriptedExchange> newRequest() { return std::make_shared<ScriptedExchange>(); }

constexpr CancelSlot allSlots[] = {CancelSlot::plain, CancelSlot::turn, CancelSlot::events,
                                   CancelSlot::realtime, CancelSlot::speech};

TEST(Slots, AbortWhatIsPublishedThereAndNothingElse) {
  for (const CancelSlot slot : allSlots) {
    std::vector<std::shared_ptr<ScriptedExchange>> requests;
    for (const CancelSlot other : allSlots) {
      requests.push_back(newRequest());
      ASSERT_TRUE(publishRequest({other}, requests.back()));
    }
    abortRequests(slot);
    abortRequests(slot);  // they were taken: not a second time
    for (std::size_t i = 0; i < requests.size(); ++i) {
      EXPECT_EQ(requests[i]->aborts, allSlots[i] == slot ? 1 : 0);
      takeBackRequest(allSlots[i], requests[i]);
      EXPECT_EQ(requests[i].use_count(), 1);
    }
  }
}

TEST(Slots, HoldSeveralRequests) {
  const auto first = newRequest();
  const auto second = newRequest();
  for (const auto& request : {first, second}) {
    ASSERT_TRUE(publishRequest({CancelSlot::turn}, request));
  }
  takeBackRequest(CancelSlot::turn, first);
  stopTurns();
  EXPECT_EQ(first->aborts, 0);
  EXPECT_EQ(second->aborts, 1);
  takeBackRequest(CancelSlot::turn, second);  // taken already
}

TEST(Slots, TakeNothingWhenTheHostIsEnding) {
  std::vector<std::shared_ptr<ScriptedExchange>> requests;
  for (const CancelSlot slot : allSlots) {
    requests.push_back(newRequest());
    ASSERT_TRUE(publishRequest({slot}, requests.back()));
  }
  cancelAllAgentRequests();
  for (const auto& request : requests) EXPECT_EQ(request->aborts, 1);
  for (const CancelSlot slot : allSlots) EXPECT_FALSE(publishRequest({slot}, newRequest()));
  EXPECT_TRUE(cancelRequested());
}

TEST(Slots, EachRequestHasOneEndWhoeverComesFirst) {
  constexpr int owners = 4;
  constexpr int rounds = 5000;
  std::atomic<int> running = owners;
  std::atomic<int> opened = 0;
  std::atomic<int> aborted = 0;
  std::atomic<int> destroyed = 0;
  runThreads(owners + 2, [&](int number) {
    if (number >= owners) {
      while (running > 0) stopTurns();
      return;
    }
    for (int i = 0; i < rounds; ++i) {
      const std::shared_ptr<ScriptedExchange> request(new ScriptedExchange,
                                                      [&](ScriptedExchange* mine) {
                                                        EXPECT_LE(mine->aborts, 1);
                                                        aborted += mine->aborts;
                                                        ++destroyed;
                                                        delete mine;
                                                      });
      ++opened;
      EXPECT_TRUE(publishRequest({CancelSlot::turn}, request));
      takeBackRequest(CancelSlot::turn, request);
    }
    --running;
  });
  EXPECT_EQ(opened, owners * rounds);
  EXPECT_EQ(destroyed, opened);
  RecordProperty("aborted", aborted);
}

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

TEST(CancelAll, DoesNotWaitForABrowserThatDoesNotRead) {
  const auto reads = std::make_shared<Gate>();
  const RunningTurn turn([reads] { reads->wait(); });
  cancelAllAgentRequests();
  reads->open();
}

}  // namespace
}  // namespace media::win::chrome_inspect
