#include <windows.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/process.h"
#include "platform/process_control.h"
#include "support/child_probe.h"

namespace media::win::chrome_inspect {
namespace {

bool isInherited(StreamId stream) {
  DWORD flags = 0;
  EXPECT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(stream), &flags));
  return (flags & HANDLE_FLAG_INHERIT) != 0;
}

struct Pipe {
  Pipe() { EXPECT_TRUE(makePipe(readEnd, writeEnd)); }
  OwnedStream readEnd;
  OwnedStream writeEnd;
};

std::string readAll(const OwnedStream& stream) {
  std::string all;
  char buffer[256];
  std::size_t got = 0;
  while (readSome(stream.get(), buffer, sizeof buffer, got) == ReadResult::data) {
    all.append(buffer, got);
  }
  return all;
}

TEST(MakePipe, GivesEndsThatNoChildInherits) {
  const Pipe pipe;
  EXPECT_FALSE(isInherited(pipe.readEnd.get()));
  EXPECT_FALSE(isInherited(pipe.writeEnd.get()));
}

TEST(KeepStandardStreamsFromChildren, ClearsTheFlagOfBoth) {
  const Pipe pipe;
  SetStdHandle(STD_INPUT_HANDLE, reinterpret_cast<HANDLE>(pipe.readEnd.get()));
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(pipe.writeEnd.get()));
  for (const StreamId stream : {standardInput(), standardOutput()}) {
    SetHandleInformation(reinterpret_cast<HANDLE>(stream), HANDLE_FLAG_INHERIT,
                         HANDLE_FLAG_INHERIT);
  }
  keepStandardStreamsFromChildren();
  EXPECT_FALSE(isInherited(standardInput()));
  EXPECT_FALSE(isInherited(standardOutput()));
}

TEST(SpawnHidden, KeepsAHandleFromTheChildThoughItIsMarkedInheritable) {
  Pipe marked;
  const auto markedEnd = reinterpret_cast<HANDLE>(marked.writeEnd.get());
  SetHandleInformation(markedEnd, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  const Pipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  ASSERT_EQ(spawnHidden(childProbe(L"wait"), L"", output.writeEnd.get(), child, error),
            SpawnResult::ok);
  marked.writeEnd.reset();
  EXPECT_EQ(readAll(marked.readEnd), "");  // ends though the child lives
  EXPECT_FALSE(waitForExit(child, 0));
  terminateProcess(child);
}

TEST(SpawnHidden, LeavesTheOutputUninheritedAndTheCallers) {
  const Pipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  ASSERT_EQ(spawnHidden(childProbe(L"exit 0"), L"", output.writeEnd.get(), child, error),
            SpawnResult::ok);
  EXPECT_FALSE(isInherited(output.writeEnd.get()));
}

TEST(SpawnHidden, TellsAMissingFolder) {
  const Pipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  EXPECT_EQ(spawnHidden(childProbe(L"exit 0"), L"C:\\no such folder", output.writeEnd.get(), child,
                        error),
            SpawnResult::failed);
  EXPECT_EQ(error, static_cast<std::uint32_t>(ERROR_DIRECTORY));
}

TEST(SpawnHidden, TellsAnOutputThatIsNoHandle) {
  OwnedProcess child;
  std::uint32_t error = 0;
  EXPECT_EQ(spawnHidden(childProbe(L"exit 0"), L"", 0x7FFFFFF0, child, error), SpawnResult::failed);
  EXPECT_EQ(error, static_cast<std::uint32_t>(ERROR_INVALID_HANDLE));
}

TEST(SpawnHidden, EndsItsChildrenWhenThisProcessEnds) {
  Pipe output;
  OwnedProcess parent;
  std::uint32_t error = 0;
  ASSERT_EQ(spawnHidden(childProbe(L"abandon"), L"", output.writeEnd.get(), parent, error),
            SpawnResult::ok);
  output.writeEnd.reset();
  // The grandchild writes here too: an end means that both are gone. It would stay for a minute.
  const std::uint64_t before = tickCountMs();
  (void)readAll(output.readEnd);
  EXPECT_LT(tickCountMs() - before, 40'000U);
  EXPECT_TRUE(waitForExit(parent, 30'000));
  EXPECT_EQ(exitCodeOf(parent), 0U);
}

TEST(TerminateProcess, GivesTheExitCodeZero) {
  const Pipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  ASSERT_EQ(spawnHidden(childProbe(L"wait"), L"", output.writeEnd.get(), child, error),
            SpawnResult::ok);
  terminateProcess(child);
  ASSERT_TRUE(waitForExit(child, 30'000));
  EXPECT_EQ(exitCodeOf(child), 0U);
}

TEST(ExitCodeOf, KeepsTheCodeThatLooksLikeARunningProcess) {
  const Pipe output;
  OwnedProcess child;
  std::uint32_t error = 0;
  ASSERT_EQ(spawnHidden(childProbe(L"exit 259"), L"", output.writeEnd.get(), child, error),
            SpawnResult::ok);
  ASSERT_TRUE(waitForExit(child, 30'000));
  EXPECT_EQ(exitCodeOf(child), static_cast<std::uint32_t>(STILL_ACTIVE));
}

TEST(PrepareProcess, SwitchesTheSystemsBoxesOff) {
  prepareProcess();
  const UINT wanted = SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX;
  EXPECT_EQ(GetErrorMode() & wanted, wanted);
}

}  // namespace
}  // namespace media::win::chrome_inspect
