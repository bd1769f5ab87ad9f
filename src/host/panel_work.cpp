#include "host/panel_work.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// After so many looks without a message the other thread sleeps until one comes.
constexpr int quietLooksToSleep = 20;

}  // namespace

struct PanelWork::State {
  struct Entry {
    json message;
    std::size_t bytes;
  };
  explicit State(std::uint32_t betweenLooksMs) : patienceMs(betweenLooksMs) {}

  const std::uint32_t patienceMs;
  std::mutex mutex;                  // guards what follows
  std::condition_variable looking;   // for the thread that does not read
  std::condition_variable progress;  // a message was taken, or answered
  std::uint64_t readerNumber = 0;
  bool reading = false;
  bool asleep = false;  // the other thread has stopped looking
  bool answering = false;
  std::uint64_t answers = 0;  // begun so far
  std::deque<Entry> waiting;
  std::size_t waitingBytes = 0;

  bool hasRoom(std::size_t bytes) const {
    return waiting.empty() ||
           (waiting.size() < maxQueuedMessages && waitingBytes + bytes <= maxQueuedBytes);
  }

  // Waits until one answer has been in progress from one look to the next.
  void waitUntilReaderIsHeldUp(std::unique_lock<std::mutex>& lock) {
    ReaderCheck check;
    for (auto result = check.look(answering, answers); result != ReaderCheck::Result::heldUp;
         result = check.look(answering, answers)) {
      if (result == ReaderCheck::Result::quiet) {
        asleep = true;
        looking.wait(lock, [this] { return !asleep; });
      } else {
        looking.wait_for(lock, std::chrono::milliseconds(patienceMs));
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
  std::unique_lock lock(state.mutex);
  if (state.reading) state.waitUntilReaderIsHeldUp(lock);
  state.reading = true;
  return ++state.readerNumber;
}

bool PanelWork::isReader(std::uint64_t number) {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  return state.readerNumber == number;
}

bool PanelWork::otherSleeps() {
  const std::lock_guard lock(state_->mutex);
  return state_->asleep;
}

Placed PanelWork::place(json& message, std::size_t bytes, std::uint32_t timeoutMs) {
  State& state = *state_;
  std::unique_lock lock(state.mutex);
  const auto canPlace = [&] { return !state.answering || state.hasRoom(bytes); };
  if (!state.progress.wait_for(lock, std::chrono::milliseconds(timeoutMs), canPlace)) {
    return Placed::full;
  }
  if (state.answering) {
    state.waiting.push_back({std::move(message), bytes});
    state.waitingBytes += bytes;
    return Placed::queued;
  }
  state.answering = true;
  ++state.answers;
  if (std::exchange(state.asleep, false)) state.looking.notify_one();
  return Placed::now;
}

bool PanelWork::next(json& message) {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  state.progress.notify_all();
  if (state.waiting.empty()) {
    state.answering = false;
    return false;
  }
  message = std::move(state.waiting.front().message);
  state.waitingBytes -= state.waiting.front().bytes;
  state.waiting.pop_front();
  ++state.answers;
  return true;
}

bool PanelWork::waitUntilDone(std::uint32_t timeoutMs) {
  State& state = *state_;
  std::unique_lock lock(state.mutex);
  return state.progress.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                 [&state] { return !state.answering; });
}

}  // namespace media::win::chrome_inspect
