#include "platform/files.h"
#include "platform/named_pipe.h"
#include "platform/win/handles_win.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

TEST(IsDrivePath, IsFalseForSharesDevicesAndStreams) {
  const auto isDrive = [](const wchar_t* path) {
    std::wstring absolute;
    return absolutePath(path, absolute) && isDrivePath(absolute);
  };
  for (const wchar_t* const path : {L"C:\\a.png", L"c:/a/b.png", L"C:\\a\\..\\b.png"}) {
    EXPECT_TRUE(isDrive(path)) << path;
  }
  for (const wchar_t* const path :
       {L"//server/share/a.png", L"/\\server\\share\\a.png", L"\\\\server\\share\\a.png",
        L"//./pipe/x", L"\\\\.\\C:\\a.png", L"//?/C:/a.png", L"\\\\?\\C:\\a.png",
        L"C:\\a.png:secret", L"C:\\a.png::$DATA", L"a.png:secret", L"C:\\x\\NUL", L"NUL", L"COM1",
        L"CON"}) {
    EXPECT_FALSE(isDrive(path)) << path;
  }
}

TEST(SamePaths, AndDrivesAreFoldedAsTheFileSystemDoes) {
  EXPECT_TRUE(isSameDrive(L"C:\\a", L"c:\\b"));
  EXPECT_FALSE(isSameDrive(L"C:\\a", L"D:\\a"));
  EXPECT_FALSE(isSameDrive(L"C:\\a", L"\\\\server\\share"));
  EXPECT_TRUE(isSamePath(L"C:\\\u00C4bc", L"c:\\\u00E4BC"));
}

TEST(FilesAndFoldersAsWritten, AreAskedForWithoutAPrefix) {
  const TestFolder folder;
  std::wstring path = folder.path().wstring();
  while (path.size() < 245) path += L"\\.";  // is a name in the form that takes longer paths
  std::ofstream(folder.path() / "file") << "x";
  EXPECT_TRUE(isFolderAsWritten(path));
  EXPECT_TRUE(isFileAsWritten(path + L"\\file"));
}

// Without the form that takes longer ones, 248 characters are the end for folders.
TEST(FilesAndFolders, OfMoreThan260CharactersAreFilesAndFoldersLikeOthers) {
  const TestFolder folder;
  std::wstring deep = folder.path().wstring();
  for (int i = 0; i < 8; ++i) {
    deep += L"\\" + std::wstring(60, L'd');
    ASSERT_TRUE(makeFolder(deep)) << deep.size();
  }
  const std::wstring path = deep + L"\\new";
  const std::wstring renamed = deep + L"\\file";
  ASSERT_GT(path.size(), 260U);
  EXPECT_TRUE(mayAddFiles(deep));
  EXPECT_TRUE(writeWholeFile(path, "bytes"));
  EXPECT_TRUE(renameOver(path, renamed));
  OwnedFile file;
  FileFacts facts;
  ASSERT_TRUE(openForReading(renamed, file, facts));
  std::string bytes(5, '\0');
  EXPECT_TRUE(readExactly(file, bytes.data(), bytes.size()));
  EXPECT_EQ(bytes, "bytes");
  EXPECT_EQ(toUtf8(facts.finalPath), toUtf8(renamed));
  std::vector<std::wstring> names;
  EXPECT_TRUE(visitFolder(deep, [&](const FolderEntry& entry) {
    names.push_back(entry.name);
    return true;
  }));
  EXPECT_EQ(names, std::vector<std::wstring>{L"file"});
  EXPECT_TRUE(isExistingFile(renamed));
  file.reset();
  EXPECT_TRUE(deleteFile(renamed));
}

TEST(CreatePipeInstance, IsRefusedWhileAnotherServes) {
  const std::string name = R"(\\.\pipe\morva-unit-second-)" + std::to_string(GetCurrentProcessId());
  OwnedStream first;
  OwnedStream second;
  ASSERT_TRUE(createPipeInstance(name.c_str(), first));
  EXPECT_FALSE(createPipeInstance(name.c_str(), second));
  EXPECT_FALSE(second);
  first.reset();
  EXPECT_TRUE(createPipeInstance(name.c_str(), second));  // its name is free with its last handle
}

TEST(OpenForReading, FetchesNoFileFromElsewhere) {
  const TestFolder folder;
  const std::wstring path = (folder.path() / "away").wstring();
  std::ofstream(folder.path() / "away") << "x";
  OwnedFile file;
  FileFacts facts;
  EXPECT_TRUE(openForReading(path, file, facts));
  SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_OFFLINE);
  if ((GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_OFFLINE) == 0) {
    GTEST_SKIP() << "Wine does not keep the attribute; Windows does";
  }
  EXPECT_FALSE(openForReading(path, file, facts));
}

TEST(ProbePipe, DistinguishesAFreeNameAPipeThatWaitsAndOneThatServes) {
  const std::string name = R"(\\.\pipe\morva-unit-)" + std::to_string(GetCurrentProcessId());
  EXPECT_EQ(probePipe(name), PipeState::absent);
  const OwnedHandle server(CreateNamedPipeA(
      name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_NOWAIT, 1, 64, 64, 5000, nullptr));
  ASSERT_TRUE(server);
  (void)ConnectNamedPipe(server.get(), nullptr);  // does not wait, and says so
  EXPECT_EQ(probePipe(name), PipeState::listening);
  const OwnedHandle client(CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                       OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(client);
  EXPECT_EQ(probePipe(name), PipeState::busy);
}

}  // namespace
}  // namespace media::win::chrome_inspect
