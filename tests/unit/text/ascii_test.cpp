// Letter case and digits, and what of a text may stand in a request.
#include "text/ascii.h"

#include <cstdio>

#include "support/testing.h"
#include "text/request_line.h"
#include "text/url_escape.h"

namespace media::win::chrome_inspect {
namespace {

using namespace std::string_view_literals;

TEST(Ascii, FoldsLettersOnlyAndKnowsHexDigitsOfBothCases) {
  const std::string digits = "0123456789abcdefABCDEF";
  for (int value = 0; value <= 0xFF; ++value) {
    const char c = static_cast<char>(value);
    const bool upper = value >= 'A' && value <= 'Z';
    EXPECT_EQ(foldCase(c), upper ? static_cast<char>(value + 32) : c) << value;
    const std::size_t at = digits.find(c);
    const int digit = at == digits.npos ? -1 : static_cast<int>(at < 16 ? at : at - 6);
    EXPECT_EQ(hexDigitValue(c), digit) << value;
  }
  EXPECT_EQ(foldCase("[@AZ`az{\xC3\x89]"), "[@az`az{\xC3\x89]");
}

TEST(EqualsFolded, ComparesWholeTexts) {
  EXPECT_TRUE(equalsFolded("", ""));
  EXPECT_TRUE(equalsFolded("PnG", "png"));
  EXPECT_FALSE(equalsFolded("png", "pn"));
  EXPECT_FALSE(equalsFolded("pn", "png"));
  EXPECT_FALSE(equalsFolded("png", "pnh"));
}

TEST(UrlEscape, LeavesWhatMayStandThere) {
  const std::string_view unreserved =
      "-.0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ_abcdefghijklmnopqrstuvwxyz~";
  for (int value = 0; value <= 0xFF; ++value) {
    const std::string byte(1, static_cast<char>(value));
    char escaped[4];
    std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned>(value));
    const bool fitsTarget = value > ' ' && value < 0x7F && byte != "\"" && byte != "#";
    const bool isUnreserved = unreserved.find(byte) != unreserved.npos;
    EXPECT_EQ(percentEncode(byte), isUnreserved ? byte : escaped);
    EXPECT_EQ(escapeTarget(byte), fitsTarget ? byte : escaped);
  }
  EXPECT_EQ(percentEncode("C:\\Work Dir\n"), "C%3A%5CWork%20Dir%0A");
  EXPECT_EQ(escapeTarget("/v1/\xC3\xBC?b=c&d=%0d"), "/v1/%C3%BC?b=c&d=%0d");
}

TEST(FitsRequestLine, RefusesWhatWouldBeginSomethingElse) {
  for (const wchar_t* const part : {L"POST", L"/v1/models?x=1&y=%20#~", L"/caf\u00e9", L"!~"}) {
    EXPECT_TRUE(fitsRequestLine(part)) << testing::PrintToString(part);
  }
  for (const std::wstring_view part :
       {L""sv, L"/a b"sv, L"/a\tb"sv, L"/a\r\nHost: elsewhere"sv, L"/a\x7f"sv, L"/a\0b"sv}) {
    EXPECT_FALSE(fitsRequestLine(part)) << testing::PrintToString(std::wstring(part));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
