#include "platform/crypto.h"

#include <gtest/gtest.h>

#include <array>

#include "support/run_threads.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

// From the examples to FIPS 180-4 (csrc.nist.gov), the empty text, and bytes of any value.
TEST(Sha256, IsTheKnownDigest) {
  const struct {
    std::string bytes;
    const char* digest;
  } cases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {std::string(1'000'000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {std::string("\0\x01", 2),
       "b413f47d13ee2fe6c845b2ee141af81de858df4ec549a58b7970bb96645bc8d2"},
  };
  for (const auto& c : cases) EXPECT_EQ(hexDigits(sha256(c.bytes)), c.digest);
}

TEST(Sha256, IsTheSameOnEveryThread) {
  const std::string wanted = sha256("abc");
  runThreads(8, [&wanted](int) {
    for (int i = 0; i < 200; ++i) EXPECT_EQ(sha256("abc"), wanted);
  });
}

TEST(RandomBytes, FillTheWholeBufferAnewAndNoMore) {
  constexpr std::size_t size = 256;
  std::array<unsigned char, size + 2> bytes{};
  std::array<int, size> changes{};
  for (int i = 0; i < 20; ++i) {
    const auto before = bytes;
    ASSERT_TRUE(randomBytes(bytes.data() + 1, size));
    for (std::size_t at = 0; at < size; ++at) changes[at] += bytes[at + 1] != before[at + 1];
  }
  for (const int each : changes) EXPECT_GT(each, 10);
  EXPECT_EQ(bytes.front(), 0);
  EXPECT_EQ(bytes.back(), 0);
}

}  // namespace
}  // namespace media::win::chrome_inspect
