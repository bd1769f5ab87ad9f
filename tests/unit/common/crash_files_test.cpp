#include "common/crash_files.h"

#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(ReadCrashFileName, TakesWhatACrashWritesAndNothingElse) {
  CrashFile file;
  ASSERT_TRUE(readCrashFileName(L"crash-0.1.0-20261122T084455Z-1234.dmp", file));
  EXPECT_EQ(file.version, "0.1.0");
  EXPECT_EQ(file.when, "2026-11-22 08:44:55 UTC");
  ASSERT_TRUE(readCrashFileName(L"crash-1.0.0-beta-20261122T084455Z-1.dmp", file));
  EXPECT_EQ(file.version, "1.0.0-beta");
  for (const wchar_t* const name :
       {L"", L"crash-", L".dmp", L"crash-.dmp", L"crash-dmp", L"crash-0.1.0-20261122T084455Z-.dmp",
        L"crash-0.1.0-20261122T084455Z-12a.dmp", L"crash-0.1.0-20261122T084455-1.dmp",
        L"crash-0.1.0-20261122T084455ZZ-1.dmp", L"crash-20261122T084455Z-1.dmp",
        L"crash-0.1.0-20261122T084455Z-1.txt", L"x-0.1.0-20261122T084455Z-1.dmp"}) {
    EXPECT_FALSE(readCrashFileName(name, file)) << fs::path(name);
  }
  EXPECT_EQ(file.version, "1.0.0-beta");
}

TEST(DropOldCrashFiles, KeepsTheNewestThreeAndAllThatIsNotItsOwn) {
  const TestFolder folder;
  const std::vector<const char*> names = {
      "crash-0.2.0-20261122T084455Z-9.dmp", "crash-0.10.0-20261122T084454Z-9.dmp",
      "crash-0.1.0-20261121T235959Z-9.dmp", "crash-0.3.0-20251122T084455Z-9.dmp", "notes.txt"};
  for (const char* name : names) std::ofstream(folder.path() / name) << "x";
  fs::create_directory(folder.path() / "crash-0.1.0-20270101T000000Z-1.dmp");
  dropOldCrashFiles(folder.path().wstring());
  std::vector<std::string> left;
  for (const CrashFile& file : crashFilesIn(folder.path().wstring())) {
    left.push_back(fs::path(file.name).string());
  }
  EXPECT_EQ(left, std::vector<std::string>(names.begin(), names.begin() + 3));
  EXPECT_FALSE(fs::exists(folder.path() / names[3]));
  EXPECT_TRUE(fs::exists(folder.path() / names[4]));
  dropOldCrashFiles((folder.path() / "none").wstring());
  EXPECT_TRUE(crashFilesIn((folder.path() / "none").wstring()).empty());
}

}  // namespace
}  // namespace media::win::chrome_inspect
