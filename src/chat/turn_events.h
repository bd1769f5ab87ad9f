#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "channel/event_batch.h"
#include "platform/locks.h"

namespace media::win::chrome_inspect {

// What the panel hears of one chat turn: its events, in order, then exactly one "agentDone", and
// nothing after it. Whoever ends the turn first decides how it ended: its own thread, or the thread
// that stops it, whatever its own is blocked in. A lock is held while an event is sent, so that
// none is still on its way when the turn has ended. All functions may block on standard output;
// what they throw, for lack of memory, they throw before the event in question is sent. Threads:
// any.
class TurnEvents {
 public:
  explicit TurnEvents(std::string runId);
  // Ends a turn that has begun and was left without an end.
  ~TurnEvents();
  TurnEvents(const TurnEvents&) = delete;
  TurnEvents& operator=(const TurnEvents&) = delete;

  const std::string& runId() const { return runId_; }

  // The first events: the panel is busy, with this turn. `details` joins the turn's "id".
  void begin(nlohmann::json details);
  // Any other event; nothing once the turn has ended.
  void send(std::string_view method, const nlohmann::json& args);
  // The same for events that are composed already, if there are any; they are taken.
  void send(EventFrames& frames);
  // The answer is complete: its text, its token usage when that is an object with content, done.
  void succeed(std::string_view chatSessionId, std::string_view text, const nlohmann::json& usage);
  // The turn ended with an error text, which need not be UTF-8.
  void fail(std::string_view error);
  // Ends a turn that has begun as "cancelled". One that has not begun is left to its own thread:
  // the panel learns of a turn before it learns of its end. So is one for whose end there is no
  // memory. Never throws.
  void cancel();

 private:
  void sendDone(bool ok, std::string_view error) MORVA_REQUIRES(mutex_);

  const std::string runId_;
  Mutex mutex_;  // held while an event is sent
  bool begun_ MORVA_GUARDED_BY(mutex_) = false;
  bool ended_ MORVA_GUARDED_BY(mutex_) = false;
};

}  // namespace media::win::chrome_inspect
