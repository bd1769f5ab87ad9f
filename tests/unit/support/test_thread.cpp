#include "support/test_thread.h"

#include <stdexcept>
#include <utility>

#include "platform/threads.h"

namespace media::win::chrome_inspect {

TestThread::TestThread(std::function<void()> body) {
  if (startThread([this, body = std::move(body)] {
        body();
        const std::lock_guard lock(mutex_);
        running_ = false;
        ended_.notify_all();  // under the lock: the object goes as soon as it is free
      })) {
    return;
  }
  throw std::runtime_error("no thread for the test");
}

void TestThread::join() {
  std::unique_lock lock(mutex_);
  ended_.wait(lock, [this] { return !running_; });
}

}  // namespace media::win::chrome_inspect
