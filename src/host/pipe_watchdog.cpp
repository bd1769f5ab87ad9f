#include "host/pipe_watchdog.h"

#include <chrono>

#include "common/detached.h"
#include "platform/locks.h"
#include "platform/named_pipe.h"

namespace media::win::chrome_inspect {
namespace {

using Clock = Condition::Clock;

// The thread may be between two calls when its time is up; it is tried again after this.
constexpr std::chrono::milliseconds nextTry(20);

}  // namespace

struct PipeWatchdog::State {
  // Held while a call is broken off, so that none of a later guard, or of no guard at all, is met.
  Mutex mutex;
  Condition changed;
  const OwnedCaller caller = currentCaller();
  bool threadStarted MORVA_GUARDED_BY(mutex) = false;
  bool ended MORVA_GUARDED_BY(mutex) = false;
  bool armed MORVA_GUARDED_BY(mutex) = false;
  StreamId pipe MORVA_GUARDED_BY(mutex) = StreamTraits::none();
  Clock::time_point deadline MORVA_GUARDED_BY(mutex);

  void watch() {
    const Lock lock(mutex);
    while (!ended) {
      if (!armed) {
        changed.wait(mutex);
      } else if (!changed.waitUntil(mutex, deadline)) {
        (void)breakOffPipeCall(caller, pipe);
        changed.waitUntil(mutex, Clock::now() + nextTry);
      }
    }
  }
};

PipeWatchdog::PipeWatchdog() : state_(std::make_shared<State>()) {}

PipeWatchdog::~PipeWatchdog() {
  State& state = *state_;
  const Lock lock(state.mutex);
  state.ended = true;
  state.changed.notifyOne();
}

PipeWatchdog::Guard::Guard(PipeWatchdog& watchdog, StreamId pipe, std::uint32_t timeoutMs)
    : watchdog_(watchdog) {
  State& state = *watchdog_.state_;
  const Lock lock(state.mutex);
  state.armed = true;
  state.pipe = pipe;
  state.deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  if (!state.threadStarted) {
    state.threadStarted =
        runDetached("pipe watchdog", [shared = watchdog_.state_] { shared->watch(); });
  }
  state.changed.notifyOne();
}

PipeWatchdog::Guard::~Guard() {
  State& state = *watchdog_.state_;
  const Lock lock(state.mutex);
  state.armed = false;  // the thread sleeps on; it finds out at its next look
}

}  // namespace media::win::chrome_inspect
