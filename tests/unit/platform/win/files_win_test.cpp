#include <gtest/gtest.h>

#include "platform/files.h"

namespace media::win::chrome_inspect {
namespace {

TEST(IsDrivePath, IsFalseForSharesDevicesAndStreams) {
  for (const wchar_t* const path : {L"C:\\a.png", L"c:/a/b.png", L"C:\\a\\..\\b.png"}) {
    std::wstring absolute;
    EXPECT_TRUE(absolutePath(path, absolute) && isDrivePath(absolute)) << path;
  }
  for (const wchar_t* const path :
       {L"//server/share/a.png", L"/\\server\\share\\a.png", L"\\\\server\\share\\a.png",
        L"//./pipe/x", L"\\\\.\\C:\\a.png", L"//?/C:/a.png", L"\\\\?\\C:\\a.png",
        L"C:\\a.png:secret", L"C:\\a.png::$DATA", L"a.png:secret", L"C:\\x\\NUL", L"NUL", L"COM1",
        L"CON"}) {
    std::wstring absolute;
    EXPECT_FALSE(absolutePath(path, absolute) && isDrivePath(absolute)) << path;
  }
}

TEST(SamePaths, AndDrivesAreFoldedAsTheFileSystemDoes) {
  EXPECT_TRUE(isSameDrive(L"C:\\a", L"c:\\b"));
  EXPECT_FALSE(isSameDrive(L"C:\\a", L"D:\\a"));
  EXPECT_FALSE(isSameDrive(L"C:\\a", L"\\\\server\\share"));
  EXPECT_TRUE(isSamePath(L"C:\\\u00C4bc", L"c:\\\u00E4BC"));
}

}  // namespace
}  // namespace media::win::chrome_inspect
