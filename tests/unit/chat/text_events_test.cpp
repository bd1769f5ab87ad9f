#include "chat/text_events.h"

#include "channel/framing.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t longest = maxBrowserBody / 8;

TEST(PiecesForBrowser, LeavesATextWholeWithoutABrowser) {
  EXPECT_EQ(piecesForBrowser("").size(), 1U);
  EXPECT_EQ(piecesForBrowser(std::string(4 * maxBrowserBody, 'x')).size(), 1U);
}

TEST(PiecesForBrowser, CutsALongTextForABrowser) {
  limitFramesForBrowser();
  EXPECT_EQ(piecesForBrowser("").size(), 1U);
  EXPECT_EQ(piecesForBrowser(std::string(longest, 'x')).size(), 1U);
  EXPECT_EQ(piecesForBrowser(std::string(longest + 1, 'x')).size(), 2U);
  const std::string text = std::string(longest - 1, 'x') + "\xC3\xA9";
  const auto pieces = piecesForBrowser(text);
  ASSERT_EQ(pieces.size(), 2U);
  EXPECT_EQ(pieces[0].size(), longest - 1);
  EXPECT_EQ(pieces[1], "\xC3\xA9");
}

}  // namespace
}  // namespace media::win::chrome_inspect
