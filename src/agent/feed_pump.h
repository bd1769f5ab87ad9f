#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "agent/agent_request.h"
#include "agent/request_slots.h"
#include "platform/locks.h"
#include "text/json_view.h"

namespace media::win::chrome_inspect {

// What becomes of a feed's events. Both functions are called on the stream's thread and under the
// pump's lock, and only for the stream that is current.
struct FeedUser {
  const char* threadName;
  CancelSlot slot;
  // Takes one event: an object with a text "method" that is not empty, and an array "args". When it
  // throws, the event is lost and the stream goes on.
  void (*forward)(JsonView event);
  // The stream has ended, however it did; also when there was no thread for it.
  void (*ended)(const AgentResponse& response);
  // Called without the lock when a stream has begun and those before it are not aborted yet: a test
  // may hold up the thread here.
  void (*beforeAbort)() = nullptr;
};

// Reads one of the agent's feeds and hands its events on. One stream of it is current at a time; a
// stream stops being so when the next begins, or the host begins to end, and then none of its
// events is forwarded any more. An object lives as long as the process: streams outlive main.
// Threads: any.
class FeedPump {
 public:
  explicit FeedPump(const FeedUser& user) : user_(user) {}

  // Ends the current stream, if there is one, and returns the number of the next, which may then be
  // read. Waits until an event that is being forwarded has been: none comes after this. `change` is
  // called under the pump's lock; when it returns false, nothing ends and the result is 0.
  std::uint64_t begin(const std::function<bool()>& change = {});

  // Starts a thread that reads stream `number` from the agent on `port` to its end. Nothing is
  // asked of the agent when the stream is not current any more.
  void read(std::uint64_t number, std::uint16_t port, std::wstring path);

 private:
  class Stream;

  const FeedUser user_;
  // Held while an event is forwarded, which may block on standard output: an event that was let
  // through and then held up would otherwise come after those of the next stream.
  Mutex speaking_;
  std::atomic<std::uint64_t> current_ = 0;  // written under the lock
};

}  // namespace media::win::chrome_inspect
