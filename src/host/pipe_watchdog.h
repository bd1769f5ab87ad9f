#pragma once

#include <cstdint>
#include <memory>

#include "platform/byte_stream.h"

namespace media::win::chrome_inspect {

// Sees to it that blocking calls of one thread on a pipe come to an end: a client that stays
// silent, or does not take its answer, must not keep all others out. Made by that thread, for its
// own calls. Its own thread begins with the first guarded call and sleeps between them.
class PipeWatchdog {
 public:
  PipeWatchdog();
  ~PipeWatchdog();
  PipeWatchdog(const PipeWatchdog&) = delete;
  PipeWatchdog& operator=(const PipeWatchdog&) = delete;

  // While it lives, the calls of the watched thread on `pipe` are broken off, and fail, once
  // `timeoutMs` have passed since its construction. The thread makes no other blocking call
  // meanwhile. One at a time. When the system has no thread for it, calls are not bounded.
  class Guard {
   public:
    Guard(PipeWatchdog& watchdog, StreamId pipe, std::uint32_t timeoutMs);
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    PipeWatchdog& watchdog_;
  };

 private:
  struct State;
  std::shared_ptr<State> state_;  // shared with the watchdog's own thread
};

}  // namespace media::win::chrome_inspect
