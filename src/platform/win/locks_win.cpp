#include "platform/locks.h"

#include <windows.h>

#include <algorithm>

namespace media::win::chrome_inspect {
namespace {

// Both are a pointer that is null at first, and need no end (learn.microsoft.com, "Slim
// Reader/Writer (SRW) Locks", "Condition Variables").
static_assert(sizeof(SRWLOCK) == sizeof(void*) && sizeof(CONDITION_VARIABLE) == sizeof(void*));

SRWLOCK* lockOf(void*& native) { return reinterpret_cast<SRWLOCK*>(&native); }

CONDITION_VARIABLE* conditionOf(void*& native) {
  return reinterpret_cast<CONDITION_VARIABLE*>(&native);
}

}  // namespace

Mutex::Mutex() : native_(nullptr) {}
Mutex::~Mutex() = default;

void Mutex::lock() { AcquireSRWLockExclusive(lockOf(native_)); }

bool Mutex::tryLock() { return TryAcquireSRWLockExclusive(lockOf(native_)) != FALSE; }

void Mutex::unlock() { ReleaseSRWLockExclusive(lockOf(native_)); }

Condition::Condition() : native_(nullptr) {}
Condition::~Condition() = default;

void Condition::wait(Mutex& mutex) {
  SleepConditionVariableSRW(conditionOf(native_), lockOf(mutex.native_), INFINITE, 0);
}

bool Condition::waitUntil(Mutex& mutex, Clock::time_point deadline) {
  using std::chrono::milliseconds;
  constexpr milliseconds longestWait = std::chrono::hours(1);  // fits the system's 32 bits
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
  if (left <= milliseconds::zero()) return false;
  SleepConditionVariableSRW(conditionOf(native_), lockOf(mutex.native_),
                            static_cast<DWORD>(std::min(left, longestWait).count()), 0);
  return true;
}

void Condition::notifyOne() { WakeConditionVariable(conditionOf(native_)); }

void Condition::notifyAll() { WakeAllConditionVariable(conditionOf(native_)); }

}  // namespace media::win::chrome_inspect
