#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// What waits to be answered at most: messages, and bytes of frames.
inline constexpr std::size_t maxQueuedMessages = 4096;
inline constexpr std::size_t maxQueuedBytes = 64 * 1024 * 1024;

// Of what comes on top only refusals wait, at most as many, and as many bytes of them. With a
// browser that writes on and reads nothing, even they must end somewhere.
inline constexpr std::size_t maxQueuedRefusals = 262'144;
inline constexpr std::size_t maxRefusalBytes = 64 * 1024 * 1024;

// An answer that takes longer than this leaves reading to the other thread.
inline constexpr std::uint32_t answerPatienceMs = 50;

// Judges, from one look to the next, whether whoever reads is held up by an answer. Pure.
class ReaderCheck {
 public:
  enum class Result { fine, heldUp, quiet };
  // `answering`: an answer is in progress; `answers`: how many have been begun so far. `heldUp`:
  // one answer was in progress at this look and the one before. `quiet`: none was begun between any
  // of the last 20 looks; then they are counted anew.
  Result look(bool answering, std::uint64_t answers);

 private:
  bool wasAnswering_ = false;
  std::uint64_t seenAnswers_ = 0;
  int quietLooks_ = 0;
};

// A message that waits for its answer, or the refusal of one; with neither, only replies that were
// held are to be written.
struct PanelMessage {
  JsonDocument body;    // none for a refusal
  std::string refusal;  // what its reply needs of the message that was refused, as JSON text
};

enum class Placed { now, queued, full };

// Shares reading messages and answering panel messages between two threads. Messages are answered
// one at a time and in order. Whoever reads one while nobody answers answers it at once, so that a
// quick reply waits for no other thread to wake up; when the answer takes its time, the other
// thread goes on reading. The other thread looks after that only while messages come; in quiet
// times it sleeps.
class PanelWork {
 public:
  // `patienceMs` is the time between two looks at whoever reads.
  explicit PanelWork(std::uint32_t patienceMs = answerPatienceMs);
  ~PanelWork();
  PanelWork(const PanelWork&) = delete;
  PanelWork& operator=(const PanelWork&) = delete;

  // Waits until the caller is to read: because nobody does, or because whoever does has been held
  // up by an answer. Returns the number under which it reads.
  std::uint64_t becomeReader();

  // Whether whoever reads under this number still does. To be asked after an answer.
  bool isReader(std::uint64_t number);

  // Whether the other thread sleeps until a message comes.
  bool otherSleeps();

  // Called by the reader with a message that came as `bytes` bytes; never waits. `now`: the caller
  // answers it, then all that `next` returns. `queued`: the other thread will; `message` has been
  // taken. `full`: too much waits; `message` is untouched. One message is always taken when none
  // waits, and a refusal as long as there is room for refusals.
  Placed place(PanelMessage& message, std::size_t bytes);

  // Called by whoever answers, when done with one. Takes the next message; false when none waits,
  // and the caller answers no more.
  bool next(PanelMessage& message);

  // Waits up to `timeoutMs` until everything that was placed has been answered.
  bool waitUntilDone(std::uint32_t timeoutMs);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace media::win::chrome_inspect
