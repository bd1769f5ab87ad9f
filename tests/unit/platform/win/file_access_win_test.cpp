#include <gtest/gtest.h>

#include "platform/file_access.h"

namespace media::win::chrome_inspect {
namespace {

TEST(IsDrivePath, IsFalseForSharesDevicesAndStreams) {
  const struct {
    const wchar_t* path;
    bool local;
  } cases[] = {
      {L"C:\\a.png", true},
      {L"c:/a/b.png", true},
      {L"C:\\a\\..\\b.png", true},
      {L"//server/share/a.png", false},
      {L"/\\server\\share\\a.png", false},
      {L"\\\\server\\share\\a.png", false},
      {L"//./pipe/x", false},
      {L"\\\\.\\C:\\a.png", false},
      {L"//?/C:/a.png", false},
      {L"\\\\?\\C:\\a.png", false},
      {L"C:\\a.png:secret", false},
      {L"C:\\a.png::$DATA", false},
      {L"a.png:secret", false},
      {L"C:\\x\\NUL", false},
      {L"NUL", false},
      {L"COM1", false},
      {L"CON", false},
  };
  for (const auto& c : cases) {
    std::wstring absolute;
    EXPECT_EQ(absolutePath(c.path, absolute) && isDrivePath(absolute), c.local) << c.path;
  }
}

TEST(IsSameDrive, IgnoresTheLettersCase) {
  EXPECT_TRUE(isSameDrive(L"C:\\a", L"c:\\b"));
  EXPECT_FALSE(isSameDrive(L"C:\\a", L"D:\\a"));
  EXPECT_FALSE(isSameDrive(L"C:\\a", L"\\\\server\\share"));
}

TEST(IsSamePathText, FoldsAsTheFileSystemDoes) {
  EXPECT_TRUE(isSamePathText(L"C:\\\u00C4bc", L"c:\\\u00E4BC"));
  EXPECT_FALSE(isSamePathText(L"a", L"b"));
}

}  // namespace
}  // namespace media::win::chrome_inspect
