#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/byte_stream.h"

namespace media::win::chrome_inspect {

// Writes lines to a stream on a thread of its own, in the order in which they came: whoever sends
// one never waits for the far side. Never destroyed: its thread uses it. Threads: any.
class LineOutput {
 public:
  // Called once when more than `mostWaiting` bytes wait: the far side sends and does not read.
  using Overflow = void (*)();

  LineOutput(StreamId stream, std::size_t mostWaiting, Overflow overflow);
  LineOutput(const LineOutput&) = delete;
  LineOutput& operator=(const LineOutput&) = delete;

  // After a write that failed, the far side is gone, and lines are dropped.
  void send(std::string line);

  // Waits until all is written, up to `timeoutMs`.
  void drain(std::uint32_t timeoutMs);

 private:
  struct State;
  State& state_;
};

}  // namespace media::win::chrome_inspect
