#include "text/wide.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using namespace std::string_literals;

const std::string bad = "\xEF\xBF\xBD";  // U+FFFD

// As the compiler writes it: a pair of units on Windows, one elsewhere.
const std::wstring smile = L"\U0001F600";

struct WideCase {
  const char* name;
  std::string utf8;
  std::wstring wide;
};

const WideCase wideCases[] = {
    {"empty", "", L""},
    {"ASCII", "C:\\a b", L"C:\\a b"},
    {"NUL inside", "a\0b"s, L"a\0b"s},
    {"two bytes", "\xC2\x80\xDF\xBF", L"\u0080\u07FF"},
    {"three bytes", "\xE0\xA0\x80\xEF\xBF\xBF", L"\u0800\uFFFF"},
    {"around the surrogates", "\xED\x9F\xBF\xEE\x80\x80", L"\uD7FF\uE000"},
    {"four bytes", "\xF0\x9F\x98\x80", smile},
    {"first and last of four bytes", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\U00010000\U0010FFFF"},
};

TEST(Wide, GoesThereAndBack) {
  for (const WideCase& c : wideCases) {
    SCOPED_TRACE(c.name);
    std::wstring wide = L"before";
    EXPECT_TRUE(wideFromUtf8(c.utf8, wide));
    EXPECT_EQ(wide, c.wide);
    EXPECT_EQ(toWide(c.utf8), c.wide);
    EXPECT_EQ(toUtf8(c.wide), c.utf8);
  }
}

// The same characters on both sides, so that the twin's paths are those of Windows.
TEST(Wide, RefusesOrRepairsWhatIsNotUtf8) {
  const struct {
    std::string bytes;
    std::wstring wide;
  } cases[] = {
      {"\xFF", L"\uFFFD"},
      {"a\xC3", L"a\uFFFD"},
      {"\xC0\xAF", L"\uFFFD\uFFFD"},
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
      {"\xF0\x80\x80\x41", L"\uFFFD\uFFFD\uFFFD\x41"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    std::wstring wide = L"before";
    EXPECT_FALSE(wideFromUtf8(c.bytes, wide));
    EXPECT_EQ(wide, L"before");
    EXPECT_EQ(toWide(c.bytes), c.wide);
  }
}

wchar_t unit(unsigned value) { return static_cast<wchar_t>(value); }

TEST(ToUtf8, ReplacesLoneSurrogates) {
  const wchar_t high = unit(0xD83D);
  const wchar_t low = unit(0xDE00);
  const struct {
    const char* name;
    std::wstring wide;
    std::string utf8;
  } cases[] = {
      {"a pair is one character", {high, low}, "\xF0\x9F\x98\x80"},
      {"high at the end", {L'a', high}, "a" + bad},
      {"high before a letter", {high, L'b'}, bad + "b"},
      {"low at the start", {low, L'b'}, bad + "b"},
      {"the wrong way round", {low, high}, bad + bad},
      {"high before a pair", {high, high, low}, bad + "\xF0\x9F\x98\x80"},
      {"a pair before a low", {high, low, low}, "\xF0\x9F\x98\x80" + bad},
      {"first and last of each half",
       {unit(0xD800), unit(0xDBFF), unit(0xDC00), unit(0xDFFF)},
       bad + toUtf8(std::wstring{unit(0xDBFF), unit(0xDC00)}) + bad},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(toUtf8(c.wide), c.utf8);
  }
}

TEST(ToUtf8, KeepsEveryCharacter) {
  for (char32_t character = 1; character <= 0x10FFFF; character += 3) {
    if (character >= 0xD800 && character <= 0xDFFF) continue;
    const bool isPair = sizeof(wchar_t) == 2 && character > 0xFFFF;
    const std::wstring wide = isPair ? std::wstring{unit(0xD800 + ((character - 0x10000) >> 10U)),
                                                    unit(0xDC00 + ((character - 0x10000) & 0x3FFU))}
                                     : std::wstring{unit(character)};
    const std::string text = toUtf8(wide);
    ASSERT_TRUE(isValidUtf8(text)) << std::hex << static_cast<unsigned>(character);
    ASSERT_EQ(toWide(text), wide) << std::hex << static_cast<unsigned>(character);
  }
}

TEST(WideFromUtf16Bytes, TakesWhatRegistryValuesHold) {
  const struct {
    const char* name;
    std::string bytes;
    std::wstring wide;
  } cases[] = {
      {"no bytes", "", L""},
      {"one byte", "a", L""},
      {"terminated", "a\0b\0\0\0"s, L"ab"},
      {"no terminator", "a\0b\0"s, L"ab"},
      {"odd size", "a\0b\0c"s, L"ab"},
      {"odd size with a terminator", "a\0\0\0x"s, L"a"},
      {"NUL inside", "a\0\0\0b\0\0\0"s, L"a"},
      {"starts with NUL", "\0\0a\0"s, L""},
      {"high byte", "\xE9\0\xAC\x20"s, L"\u00E9\u20AC"},
      {"a pair", "\x3D\xD8\x00\xDE"s, smile},
      {"a lone high half at the end", "a\0\x3D\xD8"s, L"a\uFFFD"},
      {"a high half cut off by NUL", "\x3D\xD8\0\0\x00\xDE"s, L"\uFFFD"},
      {"a lone low half",
       "\x00\xDE"
       "a\0"s,
       L"\uFFFDa"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(wideFromUtf16Bytes(c.bytes), c.wide);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
