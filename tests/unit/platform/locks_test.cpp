#include "platform/locks.h"

#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using std::chrono::milliseconds;

TEST(Mutex, IsHeldByOneAtATime) {
  Mutex mutex;
  bool others[2] = {};
  const auto tryIn = [&](bool& taken) {
    TestThread([&] {
      if (!mutex.tryLock()) return;
      taken = true;
      mutex.unlock();
    }).join();
  };
  mutex.lock();
  tryIn(others[0]);
  mutex.unlock();
  tryIn(others[1]);
  EXPECT_FALSE(others[0]);
  EXPECT_TRUE(others[1]);
}

TEST(Mutex, LosesNoStepOfMany) {
  constexpr int threads = 4;
  constexpr int steps = 20'000;
  Mutex mutex;
  int count = 0;
  runThreads(threads, [&](int) {
    for (int i = 0; i < steps; ++i) {
      const Lock lock(mutex);
      ++count;
    }
  });
  EXPECT_EQ(count, threads * steps);
}

TEST(Condition, WakesOneOrAll) {
  constexpr int waiters = 3;
  Mutex mutex;
  Condition changed;
  int waiting = 0;
  int tickets = 0;
  int served = 0;
  runThreads(waiters + 1, [&](int number) {
    const Lock lock(mutex);
    if (number < waiters) {
      ++waiting;
      changed.notifyAll();
      while (tickets == 0) changed.wait(mutex);
      --tickets;
      ++served;
      changed.notifyAll();
      return;
    }
    while (waiting < waiters) changed.wait(mutex);
    tickets = 1;
    changed.notifyOne();
    while (served < 1) changed.wait(mutex);
    tickets = waiters - 1;
    changed.notifyAll();
  });
  EXPECT_EQ(served, waiters);
}

TEST(Condition, WaitsNoLongerThanItsDeadline) {
  Mutex mutex;
  Condition never;
  const Lock lock(mutex);
  const auto begin = Condition::Clock::now();
  EXPECT_FALSE(never.waitUntil(mutex, begin));
  while (never.waitUntil(mutex, begin + milliseconds(30))) continue;
  EXPECT_GE(Condition::Clock::now(), begin + milliseconds(30));
  EXPECT_LT(Condition::Clock::now(), begin + std::chrono::seconds(30));
}

}  // namespace
}  // namespace media::win::chrome_inspect
