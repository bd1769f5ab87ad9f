#include "text/utf8.h"

#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

const std::string bad = "\xEF\xBF\xBD";  // U+FFFD

// The library too replaces each maximal ill-formed subpart by one U+FFFD.
void expectAsTheLibrary(const std::string& text) {
  const std::string valid = makeValidUtf8(text);
  ASSERT_EQ(dumpJson(valid), dumpJson(text)) << testing::PrintToString(text);
  ASSERT_EQ(isValidUtf8(text), text == valid) << testing::PrintToString(text);
}

TEST(MakeValidUtf8, AgreesWithTheLibraryAtEveryEdge) {
  // Every lead byte before every byte at which some range of a second, third or fourth byte ends,
  // whole and cut short.
  const std::string edges("\0\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xFF", 10);
  for (int lead = 0x80; lead <= 0xFF; ++lead) {
    std::string text(1, static_cast<char>(lead));
    expectAsTheLibrary(text);
    for (const char second : edges) {
      expectAsTheLibrary(text = {text[0], second});
      for (const char third : edges) {
        expectAsTheLibrary(text = {text[0], second, third});
        for (const char fourth : edges) expectAsTheLibrary({text[0], second, third, fourth});
      }
    }
  }
  EXPECT_EQ(makeValidUtf8(std::string_view("\xC3\xA9", 1)), bad);  // looks at nothing behind it
  // The table of the Unicode Standard.
  EXPECT_EQ(makeValidUtf8("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64"),
            "a" + bad + bad + bad + "b" + bad + "c" + bad + bad + "d");
}

// One character of each length, with the offsets at which characters begin.
const std::string mixed = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z";
const std::vector<std::size_t> boundaries = {0, 1, 3, 6, 10, 11};

TEST(CutUtf8, EndsAtTheLastWholeCharacterForEveryLimit) {
  for (std::size_t limit = 0; limit <= mixed.size() + 2; ++limit) {
    const std::size_t size = *std::prev(std::ranges::upper_bound(boundaries, limit));
    EXPECT_EQ(cutUtf8(mixed, limit), mixed.substr(0, size)) << limit;
  }
  EXPECT_EQ(cutUtf8("a\x80\x80\x80\x80\x80\x80", 6), "a\x80\x80\x80\x80\x80");  // no UTF-8
}

TEST(ForeignText, CutsAndRepairsWithinItsLimit) {
  const std::tuple<const char*, std::string, std::size_t, std::string> cases[] = {
      {"exactly the limit", "xxxx", 4, "xxxx"},
      {"a character across the limit is dropped", "xxx\xC3\xA9", 4, "xxx"},
      {"a character up to the limit is kept", "xx\xC3\xA9y", 4, "xx\xC3\xA9"},
      {"a broken character that was not cut is shown", "x\xC3", 4, "x" + bad},
      {"what grew is cut again", std::string(10, '\xFF'), 10, bad + bad + bad},
      {"nothing", "abc", 0, ""},
      {"the usual limit", std::string(5000, 'x'), 4096, foreignText(std::string(5000, 'x'))},
  };
  for (const auto& [name, text, limit, wanted] : cases)
    EXPECT_EQ(foreignText(text, limit), wanted) << name;
  const std::string text = mixed + "\xFF\xFF" + mixed + "\xC3";
  for (std::size_t limit = 0; limit <= text.size() + 8; ++limit) {
    EXPECT_LE(foreignText(text, limit).size(), limit);
    EXPECT_TRUE(isValidUtf8(foreignText(text, limit))) << limit;
  }
}

TEST(SplitUtf8, ReturnsWholeCharactersThatMakeUpTheText) {
  const std::string text = mixed + mixed + mixed;
  for (std::size_t limit = 4; limit <= text.size() + 1; ++limit) {
    SCOPED_TRACE(limit);
    std::string joined;
    for (std::string_view rest = text, piece; !rest.empty(); rest.remove_prefix(piece.size())) {
      piece = cutUtf8(rest, limit);
      EXPECT_TRUE(!piece.empty() && piece.size() <= limit && isValidUtf8(piece)) << piece;
      joined += piece;
    }
    EXPECT_EQ(joined, text);
  }
  EXPECT_EQ(cutUtf8(std::string(9, '\x80'), 4).size(), 4U);  // what is no UTF-8 ends too
}

}  // namespace
}  // namespace media::win::chrome_inspect
