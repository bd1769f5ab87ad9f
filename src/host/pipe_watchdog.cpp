#include "host/pipe_watchdog.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "common/detached.h"
#include "platform/named_pipe.h"

namespace media::win::chrome_inspect {
namespace {

using Clock = std::chrono::steady_clock;

// The thread may be between two calls when its time is up; it is tried again after this.
constexpr std::chrono::milliseconds nextTry(20);

}  // namespace

struct PipeWatchdog::State {
  std::mutex mutex;  // guards what follows; held while a call is broken off, so that none of a
                     // later guard, or of no guard at all, is met
  std::condition_variable changed;
  OwnedCaller caller = currentCaller();
  bool threadStarted = false;
  bool ended = false;
  bool armed = false;
  StreamId pipe = StreamTraits::none();
  Clock::time_point deadline;

  void watch() {
    std::unique_lock lock(mutex);
    while (!ended) {
      if (!armed) {
        changed.wait(lock);
      } else if (Clock::now() < deadline) {
        changed.wait_until(lock, deadline);
      } else {
        (void)breakOffPipeCall(caller, pipe);
        changed.wait_for(lock, nextTry);
      }
    }
  }
};

PipeWatchdog::PipeWatchdog() : state_(std::make_shared<State>()) {}

PipeWatchdog::~PipeWatchdog() {
  const std::lock_guard lock(state_->mutex);
  state_->ended = true;
  state_->changed.notify_one();
}

PipeWatchdog::Guard::Guard(PipeWatchdog& watchdog, StreamId pipe, std::uint32_t timeoutMs)
    : watchdog_(watchdog) {
  State& state = *watchdog_.state_;
  const std::lock_guard lock(state.mutex);
  state.armed = true;
  state.pipe = pipe;
  state.deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  if (!state.threadStarted) {
    state.threadStarted =
        runDetached("pipe watchdog", [shared = watchdog_.state_] { shared->watch(); });
  }
  state.changed.notify_one();
}

PipeWatchdog::Guard::~Guard() {
  const std::lock_guard lock(watchdog_.state_->mutex);
  watchdog_.state_->armed = false;  // the thread sleeps on; it finds out at its next look
}

}  // namespace media::win::chrome_inspect
