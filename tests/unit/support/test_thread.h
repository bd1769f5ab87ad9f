#pragma once

#include <list>

#include "platform/threads.h"
#include "support/testing.h"

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

// A thread that its destructor waits for. Made by the product's own thread call: under Wine other
// threads get lost.
class TestThread {
 public:
  explicit TestThread(const std::function<void()>& body) {
    const auto run = [body, ended = ended_] {
      body();
      ended->open();
    };
    if (!startThread(run)) throw std::runtime_error("no thread for the test");
  }
  TestThread(const TestThread&) = delete;
  TestThread& operator=(const TestThread&) = delete;
  ~TestThread() { join(); }

  void join() { ended_->wait(); }

 private:
  const std::shared_ptr<Gate> ended_ = std::make_shared<Gate>();
};

// Runs `body` on `count` threads at the same time, each with its number, and waits for all of them.
inline void runThreads(int count, const std::function<void(int number)>& body) {
  std::list<TestThread> threads;
  for (int number = 0; number < count; ++number) {
    threads.emplace_back([&body, number] { body(number); });
  }
}

}  // namespace media::win::chrome_inspect
