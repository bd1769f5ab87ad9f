#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

// Locks whose rules the compiler checks: what a lock guards is marked so at the member, what wants
// it held at the function, and the clang builds refuse code that breaks either. The check knows a
// lock by the words that name it and does not look into lambdas: a condition that is waited for is
// a loop.
#ifdef __clang__
#define MORVA_CHECKED(attribute) __attribute__((attribute))
#else
#define MORVA_CHECKED(attribute)
#endif
// Of a member or variable: touched only while `mutex` is held.
#define MORVA_GUARDED_BY(mutex) MORVA_CHECKED(guarded_by(mutex))
// Of a mutex: never taken while one of these is held.
#define MORVA_ACQUIRED_BEFORE(...) MORVA_CHECKED(acquired_before(__VA_ARGS__))
// Of a function: called, and left, with the mutex held.
#define MORVA_REQUIRES(...) MORVA_CHECKED(requires_capability(__VA_ARGS__))

namespace media::win::chrome_inspect {

class MORVA_CHECKED(capability("mutex")) Mutex {
 public:
  void lock() MORVA_CHECKED(acquire_capability()) { mutex_.lock(); }
  bool tryLock() MORVA_CHECKED(try_acquire_capability(true)) { return mutex_.try_lock(); }
  void unlock() MORVA_CHECKED(release_capability()) { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

// Holds a mutex for as long as it lives.
class MORVA_CHECKED(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) MORVA_CHECKED(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~Lock() MORVA_CHECKED(release_capability()) { mutex_.unlock(); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  Mutex& mutex_;
};

// Gives up a mutex that is held, and takes it again at its end.
class MORVA_CHECKED(scoped_lockable) Unlocked {
 public:
  explicit Unlocked(Mutex& mutex) MORVA_CHECKED(release_capability(mutex)) : mutex_(mutex) {
    mutex_.unlock();
  }
  ~Unlocked() MORVA_CHECKED(release_capability()) { mutex_.lock(); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  Mutex& mutex_;
};

// What waits here may wake up for no reason: test what is waited for in a loop around the call.
class Condition {
 public:
  using Clock = std::chrono::steady_clock;

  void wait(Mutex& mutex) MORVA_REQUIRES(mutex) {
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }

  // False, without waiting, when the deadline has passed.
  bool waitUntil(Mutex& mutex, Clock::time_point deadline) MORVA_REQUIRES(mutex) {
    const auto left = deadline - Clock::now();
    if (left <= Clock::duration::zero()) return false;
    // Some run-times turn a steady deadline into one of the wall clock, which may be set meanwhile:
    // short waits, counted on the steady clock, bound what that can cost.
    constexpr Clock::duration longestWait = std::chrono::seconds(1);
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    condition_.wait_for(lock, std::min(left, longestWait));
    lock.release();
    return true;
  }

  void notifyOne() { condition_.notify_one(); }
  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace media::win::chrome_inspect
