#include "platform/files.h"

#include <map>

#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

class Files : public testing::Test {
 protected:
  std::wstring path(const std::string& name) const { return (folder_.path() / name).wstring(); }
  std::wstring put(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder_.path() / name, std::ios::binary) << bytes;
    return path(name);
  }
  std::string contents(const std::string& name) const {
    std::ifstream file(folder_.path() / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static std::map<std::wstring, FolderEntry> entriesOf(const std::wstring& folder) {
    std::map<std::wstring, FolderEntry> seen;
    EXPECT_TRUE(visitFolder(folder, [&seen](const FolderEntry& entry) {
      seen[entry.name] = entry;
      return true;
    }));
    return seen;
  }

  const TestFolder folder_;
  const std::wstring folderPath_ = folder_.path().wstring();
  OwnedFile file_;
  FileFacts facts_;
};

TEST_F(Files, AreDistinguishedFromFoldersAndNothing) {
  std::ofstream(folder_.path() / u8"caf\u00e9") << "x";
  for (const std::wstring& file : {put("a file", "x"), put("empty", ""), path("") + L"caf\u00e9"}) {
    EXPECT_TRUE(isExistingFile(file));
    EXPECT_FALSE(isExistingFolder(file));
  }
  EXPECT_FALSE(isExistingFile(folderPath_));
  EXPECT_TRUE(isExistingFolder(folderPath_));
  for (const std::wstring& nothing : {path("missing"), std::wstring()}) {
    EXPECT_FALSE(isExistingFile(nothing));
    EXPECT_FALSE(isExistingFolder(nothing));
    EXPECT_FALSE(openForReading(nothing, file_, facts_));
    EXPECT_FALSE(folderFacts(nothing, facts_));
    EXPECT_EQ(finalFolderPath(nothing), L"");
    EXPECT_FALSE(deleteFile(nothing));
    EXPECT_FALSE(mayAddFiles(nothing));
  }
  EXPECT_FALSE(visitFolder(path("missing"), [](const FolderEntry&) { return true; }));
  EXPECT_TRUE(mayAddFiles(folderPath_));
  // A folder is made one level at a time.
  const std::wstring made = path("") + L"n\u00e9w";
  EXPECT_TRUE(makeFolder(made) && makeFolder(made));
  EXPECT_TRUE(fs::is_directory(folder_.path() / u8"n\u00e9w"));
  for (const char* name : {"a/b", "empty", "empty/below"}) EXPECT_FALSE(makeFolder(path(name)));
}

TEST_F(Files, AnExecutableIsSearchedInThePathVariable) {
  setEnvironment("PATH", folder_.path().string());
  std::wstring found = L"before";
  EXPECT_FALSE(searchExecutable(L"no-such-probe.exe", found));
  EXPECT_EQ(found, L"before");
  const std::size_t base = path("").size();
  for (const std::size_t length : {base + 10, std::size_t{259}, std::size_t{260}}) {
    const std::wstring name = std::wstring(length - base - 4, L'n') + L".exe";
    SCOPED_TRACE(length);
    if (!std::ofstream(folder_.path() / name)) continue;  // Windows itself may refuse the longest
    EXPECT_EQ(searchExecutable(name, found), length <= 259U);
    EXPECT_TRUE(fs::path(found).filename() == name || length > 259U);
  }
}

TEST_F(Files, AnOpenFileIsKnownAndReadExactlyAsOthersChangeIt) {
  ASSERT_TRUE(openForReading(put("a.png", "hello"), file_, facts_));
  EXPECT_TRUE(facts_.isRegular);
  EXPECT_FALSE(facts_.isLink);
  EXPECT_EQ(facts_.size, 5U);
  EXPECT_TRUE(facts_.finalPath.ends_with(L"a.png"));
  FileFacts folder;
  ASSERT_TRUE(folderFacts(folderPath_, folder));
  EXPECT_FALSE(folder.isRegular);
  EXPECT_FALSE(folder.isLink);
  EXPECT_EQ(folder.finalPath, finalFolderPath(folderPath_));
  EXPECT_TRUE(facts_.finalPath.starts_with(folder.finalPath));
  put("a.png", "HELLO");
  std::string bytes(3, ' ');
  EXPECT_TRUE(readExactly(file_, bytes.data(), 3));
  EXPECT_EQ(bytes, "HEL");
  EXPECT_FALSE(readExactly(file_, bytes.data(), 3));
  EXPECT_TRUE(deleteFile(path("a.png")));
  EXPECT_FALSE(openForReading(folderPath_, file_, facts_) && facts_.isRegular);
}

TEST_F(Files, AbsolutePathsAreMadeByTheTextAlone) {
  std::wstring absolute;
  ASSERT_TRUE(absolutePath(path("x") + L"/../a/./b", absolute));
  EXPECT_TRUE(absolute.ends_with(L"b"));
  EXPECT_EQ(absolute.find(L".."), std::wstring::npos);
  EXPECT_TRUE(isDrivePath(absolute));
  EXPECT_TRUE(isSameDrive(absolute, path("x")));
  EXPECT_FALSE(absolutePath(L"", absolute));
  EXPECT_TRUE(isSamePath(L"a/b", L"a/b"));
  for (const wchar_t* const other : {L"a/c", L"a/", L"a/bc"})
    EXPECT_FALSE(isSamePath(L"a/b", other));
}

TEST_F(Files, AreWrittenAndRenamedWhole) {
  const std::wstring name = path("new");
  for (const std::string& bytes : {std::string(100'000, 'a'), std::string("b"), std::string()}) {
    EXPECT_TRUE(writeWholeFile(name, bytes));
    EXPECT_TRUE(contents("new") == bytes);
  }
  EXPECT_FALSE(writeWholeFile(path("missing/new"), "b"));
  EXPECT_FALSE(writeWholeFile(folderPath_, "b"));
  const std::wstring from = put("from", "newer");
  EXPECT_TRUE(renameOver(from, name));
  EXPECT_EQ(contents("new"), "newer");
  EXPECT_FALSE(isExistingFile(from));
  EXPECT_FALSE(renameOver(from, name));
  EXPECT_TRUE(makeFolder(path("folder")));
  EXPECT_FALSE(renameOver(name, path("folder")));
  EXPECT_EQ(contents("new"), "newer");
}

TEST_F(Files, AFolderIsVisitedEntryByEntry) {
  constexpr std::int64_t hourMs = 3'600'000;
  const auto now = fs::file_time_type::clock::now();
  put("a", "1");
  put("b", "2");
  fs::create_directory(folder_.path() / "sub");
  fs::last_write_time(folder_.path() / "a", now - std::chrono::hours(48));
  fs::last_write_time(folder_.path() / "b", now + std::chrono::hours(48));
  const auto seen = entriesOf(folderPath_);
  EXPECT_EQ(seen.size(), 3U);
  EXPECT_TRUE(seen.at(L"a").isRegular && !seen.at(L"a").isFolder);
  EXPECT_TRUE(!seen.at(L"sub").isRegular && seen.at(L"sub").isFolder);
  EXPECT_NEAR(static_cast<double>(seen.at(L"a").ageMs), 48.0 * hourMs, 60'000);
  EXPECT_NEAR(static_cast<double>(seen.at(L"b").ageMs), -48.0 * hourMs, 60'000);
  int visited = 0;
  EXPECT_TRUE(visitFolder(folderPath_, [&visited](const FolderEntry&) { return ++visited < 2; }));
  EXPECT_EQ(visited, 2);
}

TEST_F(Files, LongPathsAreTaken) {
  std::wstring deep = folderPath_;
  for (int i = 0; i < 6; ++i) {
    deep += pathSeparator + std::wstring(60, L'd');
    ASSERT_TRUE(makeFolder(deep)) << deep.size();
  }
  const std::wstring name = deep + pathSeparator + L"a";
  EXPECT_TRUE(writeWholeFile(name, "x"));
  ASSERT_TRUE(openForReading(name, file_, facts_));
  EXPECT_TRUE(facts_.finalPath.ends_with(name.substr(deep.size() - 120)));
  file_.reset();
  EXPECT_EQ(entriesOf(deep).count(L"a"), 1U);
  EXPECT_TRUE(deleteFile(name));
}

}  // namespace
}  // namespace media::win::chrome_inspect
