#include "host/panel_work.h"

#include <chrono>
#include <deque>
#include <utility>

#include "platform/locks.h"

namespace media::win::chrome_inspect {
namespace {

// After so many looks without a message the other thread sleeps until one comes.
constexpr int quietLooksToSleep = 20;

Condition::Clock::time_point deadlineIn(std::uint32_t ms) {
  return Condition::Clock::now() + std::chrono::milliseconds(ms);
}

}  // namespace

struct PanelWork::State {
  struct Entry {
    PanelMessage message;
    std::size_t bytes;
  };
  // What waits, and how much of it: messages, or refusals.
  struct Load {
    std::size_t count = 0;
    std::size_t bytes = 0;
  };
  explicit State(std::uint32_t betweenLooksMs) : patienceMs(betweenLooksMs) {}

  const std::uint32_t patienceMs;
  Mutex mutex;
  Condition looking;   // for the thread that does not read
  Condition progress;  // a message was taken, or answered
  std::uint64_t readerNumber MORVA_GUARDED_BY(mutex) = 0;
  bool reading MORVA_GUARDED_BY(mutex) = false;
  bool asleep MORVA_GUARDED_BY(mutex) = false;  // the other thread has stopped looking
  bool answering MORVA_GUARDED_BY(mutex) = false;
  std::uint64_t answers MORVA_GUARDED_BY(mutex) = 0;  // begun so far
  std::deque<Entry> waiting MORVA_GUARDED_BY(mutex);
  Load messages MORVA_GUARDED_BY(mutex);
  Load refusals MORVA_GUARDED_BY(mutex);

  static bool isRefusal(const PanelMessage& message) { return !message.refusal.empty(); }
  Load& loadOf(const PanelMessage& message) MORVA_REQUIRES(mutex) {
    return isRefusal(message) ? refusals : messages;
  }

  bool hasRoom(const PanelMessage& message, std::size_t bytes) const MORVA_REQUIRES(mutex) {
    if (isRefusal(message)) {
      return refusals.count < maxQueuedRefusals && refusals.bytes + bytes <= maxRefusalBytes;
    }
    return waiting.empty() ||
           (messages.count < maxQueuedMessages && messages.bytes + bytes <= maxQueuedBytes);
  }

  // Waits until one answer has been in progress from one look to the next.
  void waitUntilReaderIsHeldUp() MORVA_REQUIRES(mutex) {
    ReaderCheck check;
    for (auto result = check.look(answering, answers); result != ReaderCheck::Result::heldUp;
         result = check.look(answering, answers)) {
      if (result == ReaderCheck::Result::quiet) {
        asleep = true;
        while (asleep) looking.wait(mutex);
      } else {
        const auto nextLook = deadlineIn(patienceMs);
        while (looking.waitUntil(mutex, nextLook)) continue;
      }
    }
  }
};

ReaderCheck::Result ReaderCheck::look(bool answering, std::uint64_t answers) {
  const bool sameAnswers = seenAnswers_ == answers;
  const bool heldUp = wasAnswering_ && answering && sameAnswers;
  wasAnswering_ = answering;
  seenAnswers_ = answers;
  if (heldUp) return Result::heldUp;
  quietLooks_ = sameAnswers ? quietLooks_ + 1 : 0;
  if (quietLooks_ < quietLooksToSleep) return Result::fine;
  quietLooks_ = 0;
  return Result::quiet;
}

PanelWork::PanelWork(std::uint32_t patienceMs) : state_(std::make_unique<State>(patienceMs)) {}
PanelWork::~PanelWork() = default;

std::uint64_t PanelWork::becomeReader() {
  State& state = *state_;
  const Lock lock(state.mutex);
  if (state.reading) state.waitUntilReaderIsHeldUp();
  state.reading = true;
  return ++state.readerNumber;
}

bool PanelWork::isReader(std::uint64_t number) {
  State& state = *state_;
  const Lock lock(state.mutex);
  return state.readerNumber == number;
}

bool PanelWork::otherSleeps() {
  State& state = *state_;
  const Lock lock(state.mutex);
  return state.asleep;
}

Placed PanelWork::place(PanelMessage& message, std::size_t bytes) {
  State& state = *state_;
  const Lock lock(state.mutex);
  if (state.answering) {
    if (!state.hasRoom(message, bytes)) return Placed::full;
    state.waiting.emplace_back();  // or throws, and nothing has changed
    State::Load& load = state.loadOf(message);
    ++load.count;
    load.bytes += bytes;
    state.waiting.back() = {std::move(message), bytes};
    return Placed::queued;
  }
  state.answering = true;
  ++state.answers;
  if (std::exchange(state.asleep, false)) state.looking.notifyOne();
  return Placed::now;
}

bool PanelWork::next(PanelMessage& message) {
  State& state = *state_;
  const Lock lock(state.mutex);
  state.progress.notifyAll();
  if (state.waiting.empty()) {
    state.answering = false;
    return false;
  }
  State::Load& load = state.loadOf(state.waiting.front().message);
  --load.count;
  load.bytes -= state.waiting.front().bytes;
  message = std::move(state.waiting.front().message);
  state.waiting.pop_front();
  ++state.answers;
  return true;
}

bool PanelWork::waitUntilDone(std::uint32_t timeoutMs) {
  State& state = *state_;
  const auto deadline = deadlineIn(timeoutMs);
  const Lock lock(state.mutex);
  while (state.answering) {
    if (!state.progress.waitUntil(state.mutex, deadline)) return false;
  }
  return true;
}

}  // namespace media::win::chrome_inspect
