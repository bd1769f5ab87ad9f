#include "platform/file_access.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>

#include "platform/files.h"
#include "support/test_folder.h"

namespace media::win::chrome_inspect {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class FileAccess : public testing::Test {
 protected:
  std::wstring path(const std::string& name) const { return (folder_.path() / name).wstring(); }
  std::wstring put(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder_.path() / name, std::ios::binary) << bytes;
    return path(name);
  }

  const TestFolder folder_;
};

TEST_F(FileAccess, AnOpenFileSaysWhatItIs) {
  const std::wstring name = put("a.png", "hello");
  OwnedFile file;
  FileFacts facts;
  ASSERT_TRUE(openForReading(name, file, facts));
  EXPECT_TRUE(facts.isRegular);
  EXPECT_FALSE(facts.isLink);
  EXPECT_EQ(facts.size, 5U);
  EXPECT_TRUE(facts.finalPath.ends_with(L"a.png"));
  FileFacts folder;
  ASSERT_TRUE(folderFacts(folder_.path().wstring(), folder));
  EXPECT_FALSE(folder.isRegular);
  EXPECT_FALSE(folder.isLink);
  EXPECT_TRUE(facts.finalPath.starts_with(folder.finalPath));
}

TEST_F(FileAccess, ReadsExactlySoMuch) {
  OwnedFile file;
  FileFacts facts;
  ASSERT_TRUE(openForReading(put("a", "hello"), file, facts));
  std::string bytes(3, ' ');
  EXPECT_TRUE(readExactly(file, bytes.data(), 3));
  EXPECT_EQ(bytes, "hel");
  EXPECT_FALSE(readExactly(file, bytes.data(), 3));
}

TEST_F(FileAccess, OthersMayWriteAndDeleteMeanwhile) {
  OwnedFile file;
  FileFacts facts;
  ASSERT_TRUE(openForReading(put("a", "hello"), file, facts));
  put("a", "HELLO");
  std::string bytes(5, ' ');
  EXPECT_TRUE(readExactly(file, bytes.data(), 5));
  EXPECT_EQ(bytes, "HELLO");
  EXPECT_TRUE(deleteFile(path("a")));
}

TEST_F(FileAccess, WhatIsNotThereCannotBeOpened) {
  OwnedFile file;
  FileFacts facts;
  EXPECT_FALSE(openForReading(path("missing"), file, facts));
  EXPECT_FALSE(openForReading(L"", file, facts));
  EXPECT_FALSE(folderFacts(path("missing"), facts));
  EXPECT_FALSE(visitFolder(path("missing"), [](const FolderEntry&) { return true; }));
  EXPECT_FALSE(deleteFile(path("missing")));
}

TEST_F(FileAccess, AFolderIsNoRegularFile) {
  OwnedFile file;
  FileFacts facts;
  EXPECT_FALSE(openForReading(folder_.path().wstring(), file, facts) && facts.isRegular);
}

TEST_F(FileAccess, AbsolutePathsAreMadeByTheTextAlone) {
  std::wstring absolute;
  ASSERT_TRUE(absolutePath(path("x") + L"/../a/./b", absolute));
  EXPECT_TRUE(absolute.ends_with(L"b"));
  EXPECT_EQ(absolute.find(L".."), std::wstring::npos);
  EXPECT_TRUE(isDrivePath(absolute));
  EXPECT_TRUE(isSameDrive(absolute, path("x")));
  EXPECT_FALSE(absolutePath(L"", absolute));
}

TEST_F(FileAccess, WrittenFilesAreWholeAndReplaceOlderOnes) {
  const std::wstring name = path("new");
  EXPECT_TRUE(writeWholeFile(name, std::string(100'000, 'a')));
  EXPECT_TRUE(writeWholeFile(name, "b"));
  EXPECT_EQ(contents(folder_.path() / "new"), "b");
  EXPECT_TRUE(writeWholeFile(name, ""));
  EXPECT_EQ(fs::file_size(folder_.path() / "new"), 0U);
  EXPECT_FALSE(writeWholeFile(path("missing/new"), "b"));
  EXPECT_FALSE(writeWholeFile(folder_.path().wstring(), "b"));
}

TEST_F(FileAccess, ARenamedFileReplacesAnother) {
  const std::wstring from = put("from", "new");
  const std::wstring to = put("to", "old");
  EXPECT_TRUE(renameOver(from, to));
  EXPECT_EQ(contents(folder_.path() / "to"), "new");
  EXPECT_FALSE(fs::exists(folder_.path() / "from"));
  EXPECT_FALSE(renameOver(from, to));
  fs::create_directory(folder_.path() / "folder");
  EXPECT_FALSE(renameOver(to, path("folder")));
  EXPECT_EQ(contents(folder_.path() / "to"), "new");
}

TEST_F(FileAccess, WhetherFilesMayBeAddedIsFoundOutWithoutAdding) {
  EXPECT_TRUE(mayAddFiles(folder_.path().wstring()));
  EXPECT_FALSE(mayAddFiles(path("missing")));
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

TEST_F(FileAccess, AFolderIsVisitedEntryByEntry) {
  put("a", "1");
  put("b", "2");
  fs::create_directory(folder_.path() / "sub");
  fs::last_write_time(folder_.path() / "a",
                      fs::file_time_type::clock::now() - std::chrono::hours(48));
  fs::last_write_time(folder_.path() / "b",
                      fs::file_time_type::clock::now() + std::chrono::hours(48));
  std::map<std::wstring, FolderEntry> seen;
  EXPECT_TRUE(visitFolder(folder_.path().wstring(), [&seen](const FolderEntry& entry) {
    seen[entry.name] = entry;
    return true;
  }));
  EXPECT_TRUE(seen.at(L"a").isRegular);
  EXPECT_FALSE(seen.at(L"sub").isRegular);
  constexpr std::int64_t hourMs = 3'600'000;
  EXPECT_NEAR(static_cast<double>(seen.at(L"a").ageMs), 48.0 * hourMs, 60'000);
  EXPECT_NEAR(static_cast<double>(seen.at(L"b").ageMs), -48.0 * hourMs, 60'000);
  int visited = 0;
  EXPECT_TRUE(visitFolder(folder_.path().wstring(),
                          [&visited](const FolderEntry&) { return ++visited < 2; }));
  EXPECT_EQ(visited, 2);
}

TEST_F(FileAccess, LongPathsAreTaken) {
  std::wstring deep = folder_.path().wstring();
  for (int i = 0; i < 6; ++i) {
    deep += pathSeparator + std::wstring(60, L'd');
    ASSERT_TRUE(makeFolder(deep)) << deep.size();
  }
  const std::wstring name = deep + pathSeparator + L"a";
  EXPECT_TRUE(writeWholeFile(name, "x"));
  OwnedFile file;
  FileFacts facts;
  ASSERT_TRUE(openForReading(name, file, facts));
  EXPECT_TRUE(facts.finalPath.ends_with(deep.substr(deep.size() - 120) + pathSeparator + L"a"));
  file.reset();
  int visited = 0;
  EXPECT_TRUE(visitFolder(deep, [&visited](const FolderEntry& entry) {
    visited += entry.isRegular ? 1 : 0;
    return true;
  }));
  EXPECT_EQ(visited, 1);
  EXPECT_TRUE(deleteFile(name));
}

}  // namespace
}  // namespace media::win::chrome_inspect
