#include "agent/agent_end.h"

#include "agent/current_agent.h"
#include "agent/running_turns.h"
#include "platform/clock.h"
#include "support/child_probe.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

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
