#pragma once

#include <condition_variable>
#include <mutex>

namespace media::win::chrome_inspect {

// Holds threads back until it is opened, once and for all. In place of std::latch, whose wait
// sleeps past its wake-up in the run-time that the Windows build comes with.
class Gate {
 public:
  void open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return open_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

}  // namespace media::win::chrome_inspect
