#include "agent/request_slots.h"

#include "agent/agent_end.h"
#include "agent/running_turns.h"
#include "platform/clock.h"
#include "support/scripted_exchange.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::shared_ptr<ScriptedExchange> newRequest() { return std::make_shared<ScriptedExchange>(); }

constexpr CancelSlot allSlots[] = {CancelSlot::plain, CancelSlot::turn, CancelSlot::events,
                                   CancelSlot::realtime};

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

}  // namespace
}  // namespace media::win::chrome_inspect
