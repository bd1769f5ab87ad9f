#include "common/tick_ids.h"

#include "platform/clock.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(TickIds, BeginWithTheTimeAndRiseEvenWhenTheClockStandsWhoeverAsks) {
  TickIds ids;
  const std::uint64_t before = tickCountMs();
  const std::uint64_t first = ids.next();
  EXPECT_TRUE(first >= before && first <= tickCountMs()) << first;
  std::vector<std::uint64_t> taken[4];
  runThreads(4, [&](int number) {
    for (int i = 0; i < 5000; ++i) taken[number].push_back(ids.next());  // many to a tick
  });
  std::set<std::uint64_t> all;
  for (const auto& mine : taken) {
    EXPECT_TRUE(std::ranges::is_sorted(mine));
    all.insert(mine.begin(), mine.end());
  }
  EXPECT_EQ(all.size(), 20'000U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
