#include "platform/process.h"

#include "platform/clock.h"
#include "support/child_probe.h"
#include "support/test_folder.h"
#include "support/test_pipe.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t patienceMs = 30'000;  // Wine takes seconds to start a program

std::string lineOf(const std::string& text, const std::string& word) {
  const std::size_t at = text.find(word + " ");
  if (at == text.npos) return "(no " + word + ")";
  const std::size_t from = at + word.size() + 1;
  return text.substr(from, text.find('\n', from) - from);
}

TEST(SpawnHidden, PassesArgumentsAndFolderAndNothingButTheOutput) {
  const TestFolder other;
  for (const std::filesystem::path& folder : {std::filesystem::path(), other.path()}) {
    const Spawned child = spawnProbe(L"describe --port 8090 \"two words\"", folder.wstring());
    ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
    const std::string text = readToEnd(child.output.get());  // nobody else holds the write end
    EXPECT_NE(lineOf(text, "arguments").find("[--port] [8090] [two words]"), text.npos) << text;
    EXPECT_EQ(std::filesystem::path(lineOf(text, "folder")),
              folder.empty() ? std::filesystem::current_path() : folder);
    EXPECT_EQ(lineOf(text, "input"), "end");
    EXPECT_EQ(lineOf(text, "streams"), inheritedByChild);
  }
}

TEST(SpawnHidden, LeavesNoPipeEndInChildrenStartedAtTheSameTime) {
  Spawned waiting[4];
  runThreads(4, [&waiting](int number) { waiting[number] = spawnWaiting(); });
  // A child that had inherited another's pipe would keep it open past that other's end.
  for (const Spawned& child : waiting) {
    terminateProcess(child.process);
    EXPECT_EQ(readToEnd(child.output.get()), "");
    EXPECT_TRUE(waitForExit(child.process, patienceMs));
  }
}

TEST(WaitForExit, LastsWhileTheChildRunsWhoeverOwnsIt) {
  Spawned child = spawnWaiting();
  const OwnedProcess second = duplicateProcess(child.process);
  EXPECT_FALSE(waitForExit(child.process, 0));
  const std::uint64_t before = tickCountMs();
  EXPECT_FALSE(waitForExit(child.process, 100));
  EXPECT_GE(tickCountMs() - before, 80U);
  terminateProcess(child.process);
  child.process.reset();
  EXPECT_TRUE(waitForExit(second, patienceMs));
  EXPECT_FALSE(duplicateProcess(OwnedProcess()));
}

TEST(ExitCodeOf, IsTheSameForEveryOwnerAndEveryTime) {
  for (const std::uint32_t code : {0U, 77U, 259U}) {  // 259 is also that of a running process
    Spawned child = spawnProbe(L"exit " + std::to_wstring(code));
    ASSERT_EQ(child.result, SpawnResult::ok) << child.systemError;
    const OwnedProcess second = duplicateProcess(child.process);
    EXPECT_TRUE(waitForExit(child.process, patienceMs));
    const std::uint32_t found = exitCodeOf(child.process);
    EXPECT_TRUE(found == code || found == (code & 0xFFU)) << found;  // POSIX keeps 8 bits
    EXPECT_EQ(exitCodeOf(child.process), found);
    child.process.reset();
    EXPECT_TRUE(waitForExit(second, 0));
    EXPECT_EQ(exitCodeOf(second), found);
  }
}

TEST(SpawnHidden, AndItsProbeFailWithTheSystemsErrorForAMissingExecutable) {
  const std::wstring missing = ownExecutable() + L".missing";
  const Spawned child = spawn(L"\"" + missing + L"\" x");
  EXPECT_EQ(child.result, SpawnResult::failed);
  EXPECT_EQ(child.systemError, 2U);  // the same number on both systems
  EXPECT_FALSE(child.process);
  std::uint32_t error = 0;
  EXPECT_TRUE(probeProcessStart(ownExecutable(), error));
  EXPECT_FALSE(probeProcessStart(missing, error));
  EXPECT_EQ(error, 2U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
