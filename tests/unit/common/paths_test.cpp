#include "common/paths.h"

#include "common/crash_files.h"
#include "common/whole_file.h"
#include "platform/files.h"
#include "support/test_folder.h"
#include "support/test_system.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

TEST(JoinPath, PutsOneSeparatorBetween) {
  const std::wstring s(1, pathSeparator);
  for (const auto& [folder, wanted] : {std::pair{std::wstring(L"a"), L"a" + s + L"n"},
                                       {L"a" + s, L"a" + s + L"n"},
                                       {L"a/", L"a/n"},
                                       {L"", L"n"},
                                       {s, s + L"n"}}) {
    EXPECT_EQ(joinPath(folder, L"n"), wanted);
  }
}

TEST(HostDataFolder, IsTheSameEachTimeAndEndsInOurName) {
  const std::wstring& folder = hostDataFolder();
  EXPECT_EQ(&hostDataFolder(), &folder);
  if (folder.empty()) return;  // this system names no folder for the user
  EXPECT_TRUE(folder.ends_with(L"chrome-extension"));
  EXPECT_TRUE(isExistingFolder(folder));
}

// Of the system's own folder, which another value of the variable does not change there.
TEST(HostDataFolder, IsKnownFromTheEnvironmentToo) {
  if (!hostDataFolderPath().empty()) {
    EXPECT_EQ(hostDataFolderPathByEnvironment(), hostDataFolderPath());
  }
  const TestFolder other;
  setEnvironment("APPDATA", toUtf8(other.path().wstring()));
  const std::wstring folder = hostDataFolderPathByEnvironment();
  EXPECT_TRUE(folder.starts_with(other.path().wstring())) << toUtf8(folder);
  EXPECT_TRUE(folder.ends_with(L"chrome-extension"));
  EXPECT_EQ(crashFolderPath(), joinPath(folder, L"crashes"));
  setEnvironment("APPDATA", "");
  EXPECT_EQ(hostDataFolderPathByEnvironment(), L"");
  EXPECT_EQ(crashFolderPath().empty(), hostDataFolderPath().empty());
}

TEST(ReadWholeFile, TakesARegularFileUpToItsLimit) {
  const TestFolder folder;
  const std::filesystem::path file = folder.path() / "file";
  std::string text = "before";
  EXPECT_FALSE(readWholeFile(file.wstring(), 4, text));
  EXPECT_FALSE(readWholeFile(folder.path().wstring(), 4, text));
  std::ofstream(file, std::ios::binary) << "a\r\nbc";
  EXPECT_FALSE(readWholeFile(file.wstring(), 4, text));
  EXPECT_EQ(text, "before");
  EXPECT_TRUE(readWholeFile(file.wstring(), 5, text));
  EXPECT_EQ(text, "a\r\nbc");
}

}  // namespace
}  // namespace media::win::chrome_inspect
