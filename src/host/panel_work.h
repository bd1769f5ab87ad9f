#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>

namespace media::win::chrome_inspect {

// What waits to be answered at most: messages, and bytes of frames.
inline constexpr std::size_t maxQueuedMessages = 4096;
inline constexpr std::size_t maxQueuedBytes = 64 * 1024 * 1024;

// An answer that takes longer than this leaves reading to the other thread.
inline constexpr std::uint32_t answerPatienceMs = 50;

enum class Placed { now, queued, full };

// Shares reading messages and answering panel messages between two threads. Messages are answered
// one at a time and in order. Whoever reads one while nobody answers answers it at once, so that a
// quick reply waits for no other thread to wake up; when the answer takes its time, the other
// thread goes on reading. The other thread looks after that only while messages come; in quiet
// times it sleeps.
class PanelWork {
 public:
  PanelWork();
  ~PanelWork();
  PanelWork(const PanelWork&) = delete;
  PanelWork& operator=(const PanelWork&) = delete;

  // Waits until the caller is to read: because nobody does, or because whoever does has been held
  // up by an answer. Gives the number of this turn of reading.
  std::uint64_t becomeReader();

  // Whether the turn with this number still lasts. To be asked after an answer.
  bool isReader(std::uint64_t turn);

  // Called by the reader with a message that came as `bytes` bytes. `now`: the caller answers it,
  // then all that `next` gives. `queued`: the other thread will; `message` has been taken. `full`:
  // too much waits, and did so for `timeoutMs`; `message` is untouched. One message is always taken
  // when none waits.
  Placed place(nlohmann::json& message, std::size_t bytes, std::uint32_t timeoutMs);

  // Called by whoever answers, when done with one: gives the next message, or says that there is
  // none to answer any more.
  bool next(nlohmann::json& message);

  // Waits up to `timeoutMs` until everything that was placed has been answered.
  bool waitUntilDone(std::uint32_t timeoutMs);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace media::win::chrome_inspect
