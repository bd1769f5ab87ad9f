#include "text/wide.h"

#include "support/testing.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

const std::string bad = "\xEF\xBF\xBD";  // U+FFFD
const std::string smile = "\xF0\x9F\x98\x80";

TEST(Wide, GoesThereAndBack) {
  // The first and last characters of each length, and those around the surrogates.
  const std::pair<std::string, std::wstring> cases[] = {
      {"", L""},
      {"C:\\a\0b\x7F"s, std::wstring(L"C:\\a\0b\u007F", 7)},
      {"\xC2\x80\xDF\xBF", L"\u0080\u07FF"},
      {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", L"\u0800\uD7FF\uE000\uFFFF"},
      {"\xC5\xA9\xE6\xBC\xA2\xF2\xAB\xB3\x9E", L"\u0169\u6F22\U000ABCDE"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF" + smile, L"\U00010000\U0010FFFF\U0001F600"},
  };
  for (const auto& [utf8, wanted] : cases) {
    std::wstring wide = L"before";
    EXPECT_TRUE(wideFromUtf8(utf8, wide));
    EXPECT_EQ(wide, wanted);
    EXPECT_EQ(toWide(utf8), wanted);
    EXPECT_EQ(toUtf8(wanted), utf8);
  }
}

// The same characters on both sides, so that the twin's paths are those of Windows.
TEST(Wide, RefusesOrRepairsWhatIsNotUtf8) {
  for (const std::string text : {"\xFF", "a\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF0\x80\x80\x41"}) {
    std::wstring wide = L"before";
    EXPECT_FALSE(wideFromUtf8(text, wide));
    EXPECT_EQ(wide, L"before");
    EXPECT_EQ(toWide(text), toWide(makeValidUtf8(text)));
  }
}

TEST(Wide, JoinsPairsAndReplacesLoneSurrogates) {
  const std::tuple<const char*, std::u16string, std::string> cases[] = {
      {"a pair", u"\xD83D\xDE00", smile},
      {"high at the end", u"a\xD83D", "a" + bad},
      {"high before a character", u"\xD83D\u20AC", bad + "\xE2\x82\xAC"},
      {"low at the start", u"\xDE00\u00E9", bad + "\xC3\xA9"},
      {"the wrong way round", u"\xDE00\xD83D", bad + bad},
      {"high before a pair", u"\xD83D\xD83D\xDE00", bad + smile},
      {"a pair before a low", u"\xD83D\xDE00\xDE00", smile + bad},
      {"first and last of each half", u"\xD800\xDBFF\xDC00\xDFFF", bad + "\xF4\x8F\xB0\x80" + bad},
  };
  for (const auto& [name, units, utf8] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(toUtf8(std::wstring(units.begin(), units.end())), utf8);
    std::string bytes;
    for (const char16_t unit : units) {
      bytes += {static_cast<char>(unit & 0xFFU), static_cast<char>(unit >> 8U)};
    }
    EXPECT_EQ(wideFromUtf16Bytes(bytes), toWide(utf8));
  }
}

TEST(WideFromUtf16Bytes, TakesWhatRegistryValuesHold) {
  const std::pair<std::string, std::wstring> cases[] = {
      {"", L""},
      {"a", L""},
      {"a\0b\0\0\0"s, L"ab"},
      {"a\0b\0"s, L"ab"},
      {"a\0b\0c"s, L"ab"},
      {"a\0\0\0b\0\0\0"s, L"a"},
      {"\x3D\xD8\0\0\x00\xDE"s, L"\uFFFD"},
  };
  for (const auto& [bytes, wide] : cases) {
    EXPECT_EQ(wideFromUtf16Bytes(bytes), wide) << testing::PrintToString(bytes);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
