#include "common/tick_ids.h"

#include <gtest/gtest.h>

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

TEST(TickIds, RiseEvenWhenTheClockStands) {
  TickIds ids;
  std::uint64_t last = 0;
  for (int i = 0; i < 10'000; ++i) {
    const std::uint64_t id = ids.next();
    ASSERT_GT(id, last);
    last = id;
  }
}

TEST(TickIds, AreOnlyOnceWhoeverAsks) {
  TickIds ids;
  constexpr int threadCount = 4;
  constexpr int each = 2000;
  std::vector<std::vector<std::uint64_t>> taken(threadCount);
  runThreads(threadCount, [&](int number) {
    for (int i = 0; i < each; ++i) taken.at(static_cast<std::size_t>(number)).push_back(ids.next());
  });
  std::set<std::uint64_t> all;
  for (const auto& mine : taken) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), static_cast<std::size_t>(threadCount * each));
}

}  // namespace
}  // namespace media::win::chrome_inspect
