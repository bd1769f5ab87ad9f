#include "platform/files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/test_folder.h"

namespace media::win::chrome_inspect {
namespace {

namespace fs = std::filesystem;

fs::path makeFile(const fs::path& path) {
  std::ofstream(path) << "x";
  return path;
}

TEST(IsExistingFile, TellsFilesFromFoldersAndNothing) {
  const TestFolder folder;
  const fs::path file = makeFile(folder.path() / "a file.txt");
  makeFile(folder.path() / u8"caf\u00e9");
  const fs::path empty = folder.path() / "empty";
  std::ofstream(empty).close();
  EXPECT_TRUE(isExistingFile(file.wstring()));
  EXPECT_TRUE(isExistingFile(empty.wstring()));
  EXPECT_TRUE(isExistingFile((folder.path() / "").wstring() + L"caf\u00e9"));
  EXPECT_FALSE(isExistingFile(folder.path().wstring()));
  EXPECT_FALSE(isExistingFile((folder.path() / "missing").wstring()));
  EXPECT_FALSE(isExistingFile(L""));
}

TEST(IsExistingFolder, TellsFoldersFromFilesAndNothing) {
  const TestFolder folder;
  const fs::path file = makeFile(folder.path() / "file");
  EXPECT_TRUE(isExistingFolder(folder.path().wstring()));
  EXPECT_FALSE(isExistingFolder(file.wstring()));
  EXPECT_FALSE(isExistingFolder((folder.path() / "missing").wstring()));
  EXPECT_FALSE(isExistingFolder(L""));
}

TEST(MakeFolder, MakesOneLevelAndIsContentWithWhatIsThere) {
  const TestFolder folder;
  const std::wstring made = (folder.path() / "").wstring() + L"n\u00e9w";
  EXPECT_TRUE(makeFolder(made));
  EXPECT_TRUE(fs::is_directory(folder.path() / u8"n\u00e9w"));
  EXPECT_TRUE(makeFolder(made));
}

TEST(MakeFolder, FailsBelowNothingAndOnAFile) {
  const TestFolder folder;
  const fs::path file = makeFile(folder.path() / "file");
  EXPECT_FALSE(makeFolder((folder.path() / "a" / "b").wstring()));
  EXPECT_FALSE(makeFolder(file.wstring()));
  EXPECT_FALSE(makeFolder((file / "below").wstring()));
}

TEST(SearchExecutable, FindsAFileInAFolderOfThePathVariable) {
  const TestFolder folder;
  const fs::path wanted = makeFile(folder.path() / "probe-of-search.exe");
  const EnvironmentVariable path("PATH", folder.path().string());
  std::wstring found;
  ASSERT_TRUE(searchExecutable(L"probe-of-search.exe", found));
  EXPECT_TRUE(fs::equivalent(found, wanted));
}

TEST(SearchExecutable, MissesWhatIsNotThereAndLeavesTheOutput) {
  const TestFolder folder;
  const EnvironmentVariable path("PATH", folder.path().string());
  std::wstring found = L"before";
  EXPECT_FALSE(searchExecutable(L"no-such-probe.exe", found));
  EXPECT_EQ(found, L"before");
}

TEST(SearchExecutable, TakesPathsOf259CharactersAndNoLonger) {
  const TestFolder folder;
  const std::size_t base = (folder.path() / "").wstring().size();
  const EnvironmentVariable path("PATH", folder.path().string());
  for (const std::size_t length : {259U, 260U}) {
    const std::wstring name = std::wstring(length - base - 4, L'n') + L".exe";
    SCOPED_TRACE(length);
    if (!std::ofstream(folder.path() / name)) continue;  // Windows itself may refuse the longer
    std::wstring found;
    EXPECT_EQ(searchExecutable(name, found), length == 259U);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
