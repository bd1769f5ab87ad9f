#include "platform/posix/wide_text_posix.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

TEST(WideText, GoesThereAndBack) {
  for (const char* const text : {"", "ascii", "caf\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80!"}) {
    EXPECT_EQ(narrowText(wideText(text)), text);
  }
  EXPECT_EQ(wideText("\xf0\x9f\x98\x80"), L"\U0001F600");
  EXPECT_EQ(wideText("\xf4\x8f\xbf\xbf"), L"\U0010FFFF");
}

TEST(WideText, ReplacesWhatIsNoText) {
  EXPECT_EQ(wideText("a\xffz"), L"a\uFFFDz");          // no first byte
  EXPECT_EQ(wideText("\x80"), L"\uFFFD");              // a later byte alone
  EXPECT_EQ(wideText("\xe2\x82z"), L"\uFFFDz");        // cut short by another
  EXPECT_EQ(wideText("\xe2\x82"), L"\uFFFD");          // cut short by the end
  EXPECT_EQ(wideText("\xc0\xaf"), L"\uFFFD");          // longer than needed
  EXPECT_EQ(wideText("\xed\xa0\x80"), L"\uFFFD");      // a surrogate
  EXPECT_EQ(wideText("\xf4\x90\x80\x80"), L"\uFFFD");  // past the last code
  EXPECT_EQ(narrowText(std::wstring(1, static_cast<wchar_t>(0xD800))), "\xef\xbf\xbd");
  EXPECT_EQ(narrowText(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xef\xbf\xbd");
}

TEST(NarrowPath, IsEmptyWhenANulWouldCutIt) {
  EXPECT_EQ(narrowPath(L"/a"), "/a");
  EXPECT_EQ(narrowPath(std::wstring(L"/a\0/b", 5)), "");
}

}  // namespace
}  // namespace media::win::chrome_inspect
