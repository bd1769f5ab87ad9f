#include "platform/files.h"
#include "platform/named_pipe.h"
#include "platform/win/handles_win.h"
#include "support/test_folder.h"
#include "support/testing.h"

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
