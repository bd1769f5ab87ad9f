#include "platform/sha256.h"

#include <gtest/gtest.h>

#include "support/run_threads.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

// From the examples to FIPS 180-4 (csrc.nist.gov), and the empty text.
TEST(Sha256, GivesTheKnownDigests) {
  EXPECT_EQ(hexDigits(sha256("")),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(hexDigits(sha256("abc")),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(hexDigits(sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(hexDigits(sha256(std::string(1'000'000, 'a'))),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, TakesBytesOfAnyValue) {
  EXPECT_EQ(hexDigits(sha256(std::string("\0\x01", 2))),
            "b413f47d13ee2fe6c845b2ee141af81de858df4ec549a58b7970bb96645bc8d2");
  EXPECT_NE(sha256(std::string("\0", 1)), sha256(""));
}

TEST(Sha256, IsTheSameOnEveryThread) {
  const std::string wanted = sha256("abc");
  ASSERT_EQ(wanted.size(), 32U);
  runThreads(8, [&wanted](int) {
    for (int i = 0; i < 200; ++i) EXPECT_EQ(sha256("abc"), wanted);
  });
}

}  // namespace
}  // namespace media::win::chrome_inspect
