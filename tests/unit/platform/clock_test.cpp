#include "platform/clock.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint64_t tickMs = 16;  // how coarse the Windows clock may be

TEST(TickCountMs, NeverGoesBackwards) {
  std::uint64_t last = tickCountMs();
  for (int i = 0; i < 100'000; ++i) {
    const std::uint64_t now = tickCountMs();
    ASSERT_GE(now, last);
    last = now;
  }
}

TEST(SleepMs, LastsAsLongAsAsked) {
  const std::uint64_t before = tickCountMs();
  sleepMs(60);
  EXPECT_GE(tickCountMs() - before, 60 - tickMs);
}

}  // namespace
}  // namespace media::win::chrome_inspect
