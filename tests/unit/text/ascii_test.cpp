#include "text/ascii.h"

#include <gtest/gtest.h>

#include <string>

namespace media::win::chrome_inspect {
namespace {

TEST(FoldCase, LowersAsciiLettersOnly) {
  for (int value = 0; value <= 0xFF; ++value) {
    const char c = static_cast<char>(value);
    const bool upper = value >= 'A' && value <= 'Z';
    EXPECT_EQ(foldCase(c), upper ? static_cast<char>(value + 32) : c) << value;
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

TEST(HexDigitValue, KnowsBothCases) {
  const std::string digits = "0123456789abcdefABCDEF";
  for (int value = 0; value <= 0xFF; ++value) {
    const char c = static_cast<char>(value);
    const std::size_t at = digits.find(c);
    const int wanted = at == digits.npos ? -1 : static_cast<int>(at < 16 ? at : at - 6);
    EXPECT_EQ(hexDigitValue(c), wanted) << value;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
