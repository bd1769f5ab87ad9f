// Inside a job of somebody else's, as packaged programs and those of some terminals are.
#include "platform/clock.h"
#include "platform/win/handles_win.h"
#include "support/child_probe.h"
#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(SpawnHidden, EndsItsChildrenInsideAnothersJobToo) {
  const OwnedHandle job(CreateJobObjectW(nullptr, nullptr));
  ASSERT_TRUE(AssignProcessToJobObject(job.get(), GetCurrentProcess())) << GetLastError();
  const Spawned parent = spawnProbe(L"abandon");
  ASSERT_EQ(parent.result, SpawnResult::ok) << parent.systemError;
  BOOL isInside = FALSE;
  EXPECT_TRUE(IsProcessInJob(handleOf(parent.process), job.get(), &isInside));
  EXPECT_TRUE(isInside);
  // The grandchild writes here too: an end means that both are gone. It would stay for a minute.
  const std::uint64_t before = tickCountMs();
  (void)readToEnd(parent.output.get());
  EXPECT_LT(tickCountMs() - before, 40'000U);
  EXPECT_TRUE(waitForExit(parent.process, 30'000));
  EXPECT_EQ(exitCodeOf(parent.process), 0U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
