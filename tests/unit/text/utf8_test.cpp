#include "text/utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace media::win::chrome_inspect {
namespace {

const std::string bad = "\xEF\xBF\xBD";  // U+FFFD

std::string times(int count, std::string_view text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

struct Utf8Case {
  const char* name;
  std::string bytes;
  std::string valid;  // the same bytes when they are well-formed
};

const Utf8Case utf8Cases[] = {
    {"empty", "", ""},
    {"NUL is a character", std::string("a\0b", 3), std::string("a\0b", 3)},
    {"last of one byte", "\x7F", "\x7F"},
    {"first and last of two bytes", "\xC2\x80\xDF\xBF", "\xC2\x80\xDF\xBF"},
    {"first and last of three bytes", "\xE0\xA0\x80\xEF\xBF\xBF", "\xE0\xA0\x80\xEF\xBF\xBF"},
    {"around the surrogates", "\xED\x9F\xBF\xEE\x80\x80", "\xED\x9F\xBF\xEE\x80\x80"},
    {"first and last of four bytes", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
     "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
    {"lone continuation bytes", "\x80\xBF", times(2, bad)},
    {"overlong in two bytes", "\xC0\xAF\xC1\xBF", times(4, bad)},
    {"overlong in three bytes", "\xE0\x80\x80", times(3, bad)},
    {"last overlong in three bytes", "\xE0\x9F\xBF", times(3, bad)},
    {"overlong in four bytes", "\xF0\x80\x80\x80", times(4, bad)},
    {"last overlong in four bytes", "\xF0\x8F\xBF\xBF", times(4, bad)},
    {"first surrogate", "\xED\xA0\x80", times(3, bad)},
    {"last surrogate", "\xED\xBF\xBF", times(3, bad)},
    {"first beyond U+10FFFF", "\xF4\x90\x80\x80", times(4, bad)},
    {"leads beyond U+10FFFF", "\xF5\x80\xF8\xFE", times(4, bad)},
    {"the byte FF",
     "a\xFF"
     "b",
     "a" + bad + "b"},
    {"ends after one of two", "\xC3", bad},
    {"ends after two of three", "\xE2\x82", bad},
    {"ends after three of four", "\xF0\x9F\x98", bad},
    {"broken off by ASCII",
     "\xE2\x82"
     "a",
     bad + "a"},
    {"broken off by a character", "\xF0\x9F\xC3\xA9", bad + "\xC3\xA9"},
    {"broken off by its like", "\xE2\xE2\x82\xAC", bad + "\xE2\x82\xAC"},
    {"one continuation byte too many", "\xC3\xA9\xA9", "\xC3\xA9" + bad},
    {"the table of the Unicode Standard", "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
     "a" + times(3, bad) + "b" + bad + "c" + times(2, bad) + "d"},
};

TEST(MakeValidUtf8, ReplacesEachMaximalSubpart) {
  for (const Utf8Case& c : utf8Cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(makeValidUtf8(c.bytes), c.valid);
    EXPECT_EQ(isValidUtf8(c.bytes), c.bytes == c.valid);
    EXPECT_EQ(foreignText(c.bytes), c.valid);
  }
}

bool libraryTakes(const std::string& text) {
  try {
    (void)nlohmann::json(text).dump();
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

TEST(MakeValidUtf8, AgreesWithTheLibraryAtEveryEdge) {
  // Every lead byte before every byte at which some range of a second, third or fourth byte ends.
  const std::string edges = "\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xFF";
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    for (const char second : edges) {
      for (const char third : edges) {
        for (const char fourth : edges) {
          const std::string text = {static_cast<char>(lead), second, third, fourth};
          ASSERT_EQ(isValidUtf8(text), libraryTakes(text)) << testing::PrintToString(text);
          ASSERT_TRUE(libraryTakes(makeValidUtf8(text))) << testing::PrintToString(text);
        }
      }
    }
  }
}

// One character of each length, with the offsets at which characters begin.
const std::string mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
const std::vector<std::size_t> boundaries = {0, 1, 3, 6, 10, 11};

TEST(CutUtf8, EndsAtTheLastWholeCharacterForEveryLimit) {
  for (std::size_t limit = 0; limit <= mixed.size() + 2; ++limit) {
    SCOPED_TRACE(limit);
    const std::size_t size = *std::prev(std::ranges::upper_bound(boundaries, limit));
    EXPECT_EQ(cutUtf8(mixed, limit), mixed.substr(0, size));
  }
  EXPECT_EQ(cutUtf8(std::string(10, '\x80'), 7).size(), 7U);  // no UTF-8 is cut at the limit
}

TEST(ForeignText, CutsAndRepairsWithinItsLimit) {
  const struct {
    const char* name;
    std::string text;
    std::size_t limit;
    std::string wanted;
  } cases[] = {
      {"exactly the limit", "xxxx", 4, "xxxx"},
      {"a character across the limit is dropped", "xxx\xC3\xA9", 4, "xxx"},
      {"a character up to the limit is kept", "xx\xC3\xA9y", 4, "xx\xC3\xA9"},
      {"a broken character that was not cut is shown", "x\xC3", 4, "x" + bad},
      {"what grew is cut again", std::string(10, '\xFF'), 10, times(3, bad)},
      {"nothing", "abc", 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(foreignText(c.text, c.limit), c.wanted);
  }
  EXPECT_EQ(foreignText(std::string(4096, 'x')).size(), 4096U);
  EXPECT_EQ(foreignText(std::string(5000, 'x')).size(), 4096U);
  const std::string text = mixed + "\xFF\xFF" + mixed + "\xC3";
  for (std::size_t limit = 0; limit <= text.size() + 8; ++limit) {
    SCOPED_TRACE(limit);
    EXPECT_LE(foreignText(text, limit).size(), limit);
    EXPECT_TRUE(isValidUtf8(foreignText(text, limit)));
  }
}

TEST(SplitUtf8, ReturnsWholeCharactersThatMakeUpTheText) {
  const std::string text = times(5, mixed);
  for (std::size_t limit = 4; limit <= text.size() + 1; ++limit) {
    SCOPED_TRACE(limit);
    std::string joined;
    for (const std::string_view piece : splitUtf8(text, limit)) {
      EXPECT_FALSE(piece.empty());
      EXPECT_LE(piece.size(), limit);
      EXPECT_TRUE(isValidUtf8(piece));
      joined += piece;
    }
    EXPECT_EQ(joined, text);
  }
  EXPECT_TRUE(splitUtf8("", 4).empty());
  EXPECT_EQ(splitUtf8("abcd", 4).size(), 1U);
  EXPECT_EQ(splitUtf8("abcde", 4).size(), 2U);
  EXPECT_EQ(splitUtf8(std::string(9, '\x80'), 4).size(), 3U);  // what is no UTF-8 ends too
}

}  // namespace
}  // namespace media::win::chrome_inspect
