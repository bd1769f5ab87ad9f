#include "host/host_end.h"

#include <algorithm>

#include "agent/agent_end.h"
#include "channel/framing.h"
#include "channel/pending_replies.h"
#include "common/detached.h"
#include "host/host_running.h"
#include "platform/clock.h"
#include "platform/locks.h"
#include "platform/process_control.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t lookMs = 10;

struct EndOfInput {
  Mutex mutex;
  Condition came;
  bool isHere MORVA_GUARDED_BY(mutex) = false;
};

EndOfInput& endOfInput() {
  static EndOfInput& end = leaked<EndOfInput>();
  return end;
}

void guardEnd(std::uint32_t limitMs) {
  {
    EndOfInput& end = endOfInput();
    const Lock lock(end.mutex);
    while (!end.isHere) end.came.wait(end.mutex);
  }
  sleepMs(limitMs);
  exitProcess(0);
}

std::uint32_t elapsedMs(std::uint64_t since) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(tickCountMs() - since, endLimitMs));
}

// `begin`: the tick count at the end of input.
void waitForLastReplies(PanelWork& work, std::uint64_t begin) {
  LastWait wait;
  std::uint32_t seenMs = 0;
  while (!work.waitUntilDone(lookMs)) {
    const std::uint32_t nowMs = elapsedMs(begin);
    if (!wait.goesOn(nowMs - seenMs, outputIsBusy())) break;
    seenMs = nowMs;
  }
  // A frame whose reader takes it is not torn.
  const std::uint32_t spentMs = elapsedMs(begin);
  (void)closeOutput(lastRepliesMs - std::min(spentMs, lastRepliesMs));
}

void wakeWaiters() {
  hostRunning = false;
  wakeReplyWaiters();
}

}  // namespace

void startEndGuard(std::uint32_t limitMs) {
  (void)endOfInput();  // made now: at the end there may be no memory for it
  (void)runDetached("end guard", [limitMs] { guardEnd(limitMs); });
}

void noteEndOfInput() {
  EndOfInput& end = endOfInput();
  const Lock lock(end.mutex);
  end.isHere = true;
  end.came.notifyAll();
}

void endBy(const std::vector<std::function<void()>>& steps) {
  noteEndOfInput();
  for (const auto& step : steps) runContained("end", step);
  exitProcess(0);
}

void endHost(PanelWork& work) {
  noteEndOfInput();  // before anything that takes memory: from now on the guard sees to the end
  const std::uint64_t begin = tickCountMs();
  endBy({cancelAllAgentRequests, [&work, begin] { waitForLastReplies(work, begin); }, wakeWaiters});
}

bool LastWait::goesOn(std::uint32_t ms, bool outputWasBusy) {
  totalMs_ = std::min(totalMs_ + ms, lastRepliesMs);
  if (!outputWasBusy) idleMs_ += ms;
  return totalMs_ < lastRepliesMs && idleMs_ < lastWorkMs;
}

}  // namespace media::win::chrome_inspect
