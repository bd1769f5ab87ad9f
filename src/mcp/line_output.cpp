#include "mcp/line_output.h"

#include <chrono>
#include <utility>

#include "channel/framing.h"
#include "common/detached.h"
#include "platform/locks.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {

struct LineOutput::State {
  State(StreamId to, std::size_t most, Overflow tooMuch)
      : stream(to), mostWaiting(most), overflow(tooMuch) {}

  const StreamId stream;
  const std::size_t mostWaiting;
  const Overflow overflow;
  Mutex mutex;  // not held while a line is written
  Condition changed;
  std::string waiting MORVA_GUARDED_BY(mutex);
  bool isWriting MORVA_GUARDED_BY(mutex) = false;
  bool hasThread MORVA_GUARDED_BY(mutex) = false;
  bool isGone MORVA_GUARDED_BY(mutex) = false;  // the far side

  void writeLines() {
    const Lock lock(mutex);
    for (;;) {
      while (waiting.empty()) changed.wait(mutex);
      writeWaiting();
    }
  }

  void writeWaiting() MORVA_REQUIRES(mutex) {
    const std::string lines = std::exchange(waiting, {});
    isWriting = true;
    bool isWritten = false;
    {
      const Unlocked unlocked(mutex);
      isWritten = writeAll(stream, lines.data(), lines.size());
    }
    isWriting = false;
    isGone = isGone || !isWritten;
    changed.notifyAll();
  }
};

LineOutput::LineOutput(StreamId stream, std::size_t mostWaiting, Overflow overflow)
    : state_(leaked<State>(stream, mostWaiting, overflow)) {}

void LineOutput::send(std::string line) {
  State& state = state_;
  const Lock lock(state.mutex);
  if (state.isGone) return;
  line += '\n';
  if (state.waiting.empty()) {
    state.waiting = std::move(line);
  } else {
    state.waiting += line;
  }
  if (state.waiting.size() > state.mostWaiting) {
    state.isGone = true;
    return state.overflow();
  }
  if (!state.hasThread) {
    state.hasThread = runDetached("output", [&state] { state.writeLines(); });
  }
  if (!state.hasThread) return state.writeWaiting();  // late is better than never
  state.changed.notifyAll();
}

void LineOutput::drain(std::uint32_t timeoutMs) {
  const auto deadline = Condition::Clock::now() + std::chrono::milliseconds(timeoutMs);
  const Lock lock(state_.mutex);
  while (!state_.isGone && (state_.isWriting || !state_.waiting.empty())) {
    if (!state_.changed.waitUntil(state_.mutex, deadline)) return;
  }
}

}  // namespace media::win::chrome_inspect
