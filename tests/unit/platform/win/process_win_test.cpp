#include "platform/clock.h"
#include "platform/http_client.h"
#include "platform/process.h"
#include "platform/process_control.h"
#include "platform/win/handles_win.h"
#include "support/child_probe.h"
#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

bool isInherited(StreamId stream) {
  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(handleOf(stream), &flags));
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}

void markInherited(StreamId stream) {
  SetHandleInformation(handleOf(stream), HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
}

TEST(SpawnHidden, KeepsAHandleFromTheChildThoughItIsMarkedInheritable) {
  TestPipe marked;
  markInherited(marked.writeEnd.get());
  const TestPipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  ASSERT_EQ(spawnHidden(childProbe(L"wait"), L"", output.writeEnd.get(), child, error),
            SpawnResult::ok);
  EXPECT_FALSE(isInherited(output.writeEnd.get()));
  BOOL isInJob = FALSE;
  EXPECT_TRUE(IsProcessInJob(handleOf(child), nullptr, &isInJob) && isInJob);
  marked.writeEnd.reset();
  EXPECT_EQ(readToEnd(marked.readEnd.get()), "");  // ends though the child lives
  EXPECT_FALSE(waitForExit(child, 0));
  terminateProcess(child);
  ASSERT_TRUE(waitForExit(child, 30'000));
  EXPECT_EQ(exitCodeOf(child), 0U);
}

TEST(SpawnHidden, FailsForAMissingFolderAndAnOutputThatIsNoHandle) {
  const TestPipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  const std::wstring line = childProbe(L"exit 0");
  EXPECT_EQ(spawnHidden(line, L"C:\\no such folder", output.writeEnd.get(), child, error),
            SpawnResult::failed);
  EXPECT_EQ(error, static_cast<std::uint32_t>(ERROR_DIRECTORY));
  EXPECT_EQ(spawnHidden(line, L"", 0x7FFFFFF0, child, error), SpawnResult::failed);
  EXPECT_EQ(error, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST(SpawnHidden, HasTheChildInAJobFromItsBeginningAndWithTheSystemsErrorMode) {
  prepareProcess();  // our own mode is another
  const Spawned child = spawnProbe(L"state");
  ASSERT_EQ(child.result, SpawnResult::ok);
  EXPECT_EQ(readToEnd(child.output.get()), "in a job, error mode 0");
}

TEST(SpawnHidden, EndsItsChildrenWhenThisProcessEnds) {
  const Spawned parent = spawnProbe(L"abandon");
  ASSERT_EQ(parent.result, SpawnResult::ok);
  // The grandchild writes here too: an end means that both are gone. It would stay for a minute.
  const std::uint64_t before = tickCountMs();
  (void)readToEnd(parent.output.get());
  EXPECT_LT(tickCountMs() - before, 40'000U);
  EXPECT_TRUE(waitForExit(parent.process, 30'000));
  EXPECT_EQ(exitCodeOf(parent.process), 0U);
}

TEST(LibrariesOfTheSystem, AreLoadedWhenTheyAreCalled) {
  EXPECT_EQ(GetModuleHandleW(L"winhttp.dll"), nullptr);
  std::shared_ptr<HttpExchange> exchange;
  EXPECT_EQ(openHttpExchange(8090, L"GET", L"/", {}, exchange), HttpOpenResult::ok);
  EXPECT_NE(GetModuleHandleW(L"winhttp.dll"), nullptr);
}

TEST(PrepareProcess, SwitchesTheSystemsBoxesOff) {
  prepareProcess();
  const UINT wanted = SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX;
  EXPECT_EQ(GetErrorMode() & wanted, wanted);
}

}  // namespace
}  // namespace media::win::chrome_inspect
