#include "platform/random.h"

#include <gtest/gtest.h>

#include <array>
#include <set>

namespace media::win::chrome_inspect {
namespace {

TEST(RandomBytes, AreOthersEachTime) {
  std::set<std::array<unsigned char, 32>> seen;
  for (int i = 0; i < 100; ++i) {
    std::array<unsigned char, 32> bytes{};
    ASSERT_TRUE(randomBytes(bytes.data(), bytes.size()));
    EXPECT_TRUE(seen.insert(bytes).second);
  }
}

TEST(RandomBytes, FillTheWholeBufferAndNoMore) {
  std::array<unsigned char, 258> bytes{};
  std::array<bool, 256> changed{};
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(randomBytes(bytes.data() + 1, 256));
    for (std::size_t at = 0; at < 256; ++at) changed[at] = changed[at] || bytes[at + 1] != 0;
  }
  for (const bool each : changed) EXPECT_TRUE(each);
  EXPECT_EQ(bytes.front(), 0);
  EXPECT_EQ(bytes.back(), 0);
}

}  // namespace
}  // namespace media::win::chrome_inspect
