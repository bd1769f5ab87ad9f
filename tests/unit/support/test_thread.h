#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>

namespace media::win::chrome_inspect {

// A thread that its destructor waits for. Made by the product's own thread call: under Wine other
// threads get lost.
class TestThread {
 public:
  explicit TestThread(std::function<void()> body);
  TestThread(const TestThread&) = delete;
  TestThread& operator=(const TestThread&) = delete;
  ~TestThread() { join(); }

  void join();

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  bool running_ = true;
};

}  // namespace media::win::chrome_inspect
