#include "platform/process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "support/child_probe.h"
#include "support/test_folder.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t patienceMs = 30'000;  // Wine takes seconds to start a program

struct Spawned {
  SpawnResult result = SpawnResult::failed;
  std::uint32_t systemError = 0;
  OwnedProcess process;
  OwnedStream output;  // our end

  void waitUntilReady() const {
    char line[16];
    std::size_t got = 0;
    ASSERT_EQ(readSome(output.get(), line, sizeof line, got), ReadResult::data);
    EXPECT_EQ(std::string(line, got), "ready\n");
  }

  std::string readAll() const {
    std::string all;
    char buffer[256];
    std::size_t got = 0;
    while (readSome(output.get(), buffer, sizeof buffer, got) == ReadResult::data) {
      all.append(buffer, got);
    }
    return all;
  }
};

Spawned spawn(const std::wstring& commandLine, const std::wstring& folder = L"") {
  Spawned spawned;
  OwnedStream writeEnd;
  EXPECT_TRUE(makePipe(spawned.output, writeEnd));
  spawned.result =
      spawnHidden(commandLine, folder, writeEnd.get(), spawned.process, spawned.systemError);
  return spawned;
}

std::string lineOf(const std::string& text, const std::string& word) {
  const std::size_t at = text.find(word + " ");
  if (at == text.npos) return "(no " + word + ")";
  const std::size_t from = at + word.size() + 1;
  return text.substr(from, text.find('\n', from) - from);
}

TEST(SpawnHidden, PassesArgumentsAndNothingButTheOutput) {
  const Spawned child = spawn(childProbe(L"describe --port 8090 \"two words\""));
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  const std::string text = child.readAll();  // ends: nobody else holds the pipe's write end
  EXPECT_NE(lineOf(text, "arguments").find("[--port] [8090] [two words]"), text.npos) << text;
  EXPECT_EQ(lineOf(text, "input"), "end");
  EXPECT_EQ(lineOf(text, "streams"), inheritedByChild);
  EXPECT_TRUE(waitForExit(child.process, patienceMs));
  EXPECT_EQ(exitCodeOf(child.process), 0U);
}

TEST(SpawnHidden, StartsTheChildInTheFolderItIsGiven) {
  const TestFolder folder;
  const Spawned child = spawn(childProbe(L"describe"), folder.path().wstring());
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  const std::string told = lineOf(child.readAll(), "folder");
  EXPECT_EQ(std::filesystem::path(told), folder.path());
}

TEST(SpawnHidden, StartsTheChildInOurOwnFolderWithoutOne) {
  const Spawned child = spawn(childProbe(L"describe"));
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  EXPECT_EQ(std::filesystem::path(lineOf(child.readAll(), "folder")),
            std::filesystem::current_path());
}

TEST(SpawnHidden, FailsWithTheSystemsErrorForAMissingExecutable) {
  const Spawned child = spawn(L"\"" + ownExecutable() + L".missing\" x");
  EXPECT_EQ(child.result, SpawnResult::failed);
  EXPECT_EQ(child.systemError, 2U);  // the same number on both systems
  EXPECT_FALSE(child.process);
}

TEST(SpawnHidden, LeavesNoPipeEndInChildrenStartedAtTheSameTime) {
  constexpr int starters = 4;
  std::vector<Spawned> waiting(starters);
  {
    std::vector<std::unique_ptr<TestThread>> threads;
    threads.reserve(starters);
    for (Spawned& child : waiting) {
      threads.push_back(
          std::make_unique<TestThread>([&child] { child = spawn(childProbe(L"wait")); }));
    }
  }
  // A child that had inherited another's pipe would keep it open past that other's end.
  for (Spawned& child : waiting) {
    ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
    child.waitUntilReady();
    terminateProcess(child.process);
    EXPECT_EQ(child.readAll(), "");
    EXPECT_TRUE(waitForExit(child.process, patienceMs));
  }
}

TEST(WaitForExit, IsFalseWhileTheChildRunsAndLasts) {
  const Spawned child = spawn(childProbe(L"wait"));
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  child.waitUntilReady();
  EXPECT_FALSE(waitForExit(child.process, 0));
  const std::uint64_t before = tickCountMs();
  EXPECT_FALSE(waitForExit(child.process, 100));
  EXPECT_GE(tickCountMs() - before, 80U);
  terminateProcess(child.process);
  EXPECT_TRUE(waitForExit(child.process, patienceMs));
  EXPECT_EQ(child.readAll(), "");
}

TEST(ExitCodeOf, IsTheSameForEveryOwnerAndEveryTime) {
  Spawned child = spawn(childProbe(L"exit 77"));
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  const OwnedProcess second = duplicateProcess(child.process);
  ASSERT_TRUE(second);
  EXPECT_TRUE(waitForExit(child.process, patienceMs));
  EXPECT_EQ(exitCodeOf(child.process), 77U);
  EXPECT_EQ(exitCodeOf(child.process), 77U);
  child.process.reset();
  EXPECT_TRUE(waitForExit(second, 0));
  EXPECT_EQ(exitCodeOf(second), 77U);
}

TEST(ExitCodeOf, AnEndWithTheCodeOfARunningProcessIsAnEnd) {
  const Spawned child = spawn(childProbe(L"exit 259"));
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  EXPECT_TRUE(waitForExit(child.process, patienceMs));
  EXPECT_EQ(exitCodeOf(child.process) & 0xFFU, 259U & 0xFFU);
}

TEST(DuplicateProcess, WaitsOnWhileTheFirstOwnerIsGone) {
  Spawned child = spawn(childProbe(L"wait"));
  ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
  const OwnedProcess second = duplicateProcess(child.process);
  terminateProcess(child.process);
  child.process.reset();
  EXPECT_TRUE(waitForExit(second, patienceMs));
}

TEST(DuplicateProcess, OfNothingIsNothing) { EXPECT_FALSE(duplicateProcess(OwnedProcess())); }

}  // namespace
}  // namespace media::win::chrome_inspect
