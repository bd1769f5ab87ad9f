#include "common/tick_ids.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "platform/clock.h"
#include "support/run_threads.h"

namespace media::win::chrome_inspect {
namespace {

TEST(TickIds, BeginWithTheTime) {
  TickIds ids;
  const std::uint64_t before = tickCountMs();
  const std::uint64_t id = ids.next();
  EXPECT_GE(id, before);
  EXPECT_LE(id, tickCountMs());
}

TEST(TickIds, RiseEvenWhenTheClockStandsWhoeverAsks) {
  TickIds ids;
  constexpr int threadCount = 4;
  constexpr int each = 5000;  // many to a tick
  std::vector<std::vector<std::uint64_t>> taken(threadCount);
  runThreads(threadCount, [&](int number) {
    for (int i = 0; i < each; ++i) taken.at(static_cast<std::size_t>(number)).push_back(ids.next());
  });
  std::set<std::uint64_t> all;
  for (const auto& mine : taken) {
    EXPECT_TRUE(std::ranges::is_sorted(mine));
    all.insert(mine.begin(), mine.end());
  }
  EXPECT_EQ(all.size(), static_cast<std::size_t>(threadCount * each));
}

}  // namespace
}  // namespace media::win::chrome_inspect
