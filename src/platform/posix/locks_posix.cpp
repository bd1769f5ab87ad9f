#include "platform/locks.h"

#include <condition_variable>
#include <mutex>

namespace media::win::chrome_inspect {
namespace {

std::mutex& mutexOf(void* native) { return *static_cast<std::mutex*>(native); }

std::condition_variable& conditionOf(void* native) {
  return *static_cast<std::condition_variable*>(native);
}

}  // namespace

Mutex::Mutex() : native_(new std::mutex) {}
Mutex::~Mutex() { delete static_cast<std::mutex*>(native_); }

void Mutex::lock() { mutexOf(native_).lock(); }

bool Mutex::tryLock() { return mutexOf(native_).try_lock(); }

void Mutex::unlock() { mutexOf(native_).unlock(); }

Condition::Condition() : native_(new std::condition_variable) {}
Condition::~Condition() { delete static_cast<std::condition_variable*>(native_); }

void Condition::wait(Mutex& mutex) {
  std::unique_lock lock(mutexOf(mutex.native_), std::adopt_lock);
  conditionOf(native_).wait(lock);
  lock.release();
}

bool Condition::waitUntil(Mutex& mutex, Clock::time_point deadline) {
  if (Clock::now() >= deadline) return false;
  std::unique_lock lock(mutexOf(mutex.native_), std::adopt_lock);
  conditionOf(native_).wait_until(lock, deadline);
  lock.release();
  return true;
}

void Condition::notifyOne() { conditionOf(native_).notify_one(); }

void Condition::notifyAll() { conditionOf(native_).notify_all(); }

}  // namespace media::win::chrome_inspect
