#pragma once

#include <chrono>

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

// Not recursive. Windows side: SRWLOCK, of which one that nobody waits for costs no kernel call.
class MORVA_CHECKED(capability("mutex")) Mutex {
 public:
  Mutex();
  ~Mutex();  // NOLINT(performance-trivially-destructible): on some systems only
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() MORVA_CHECKED(acquire_capability());
  bool tryLock() MORVA_CHECKED(try_acquire_capability(true));
  void unlock() MORVA_CHECKED(release_capability());

 private:
  friend class Condition;
  void* native_;
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
// Windows side: CONDITION_VARIABLE.
class Condition {
 public:
  using Clock = std::chrono::steady_clock;

  Condition();
  ~Condition();  // NOLINT(performance-trivially-destructible): on some systems only
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void wait(Mutex& mutex) MORVA_REQUIRES(mutex);
  // False, without waiting, when the deadline has passed.
  bool waitUntil(Mutex& mutex, Clock::time_point deadline) MORVA_REQUIRES(mutex);
  void notifyOne();
  void notifyAll();

 private:
  void* native_;
};

}  // namespace media::win::chrome_inspect
