#pragma once

#include <cstddef>
#include <functional>

#include "platform/sockets.h"

namespace media::win::chrome_inspect {

inline constexpr std::size_t maxConnections = 16;

enum class Serve { started, full, noThread };

// Threads that serve connections. They are made when needed, sixteen at most, and then wait for the
// next connection instead of being made anew, which costs a millisecond where the system is slow at
// it. Never destroyed: its threads use it for ever.
class ConnectionThreads {
 public:
  // `handler` serves one connection on the thread that calls it and leaves closing it to us. What
  // it throws ends there, and the connection with it.
  explicit ConnectionThreads(std::function<void(const OwnedSocket&)> handler);

  // Has `connection` served, or closes it: when sixteen are being served (`full`) or no thread can
  // be had (`noThread`). Called by one thread. May throw for want of memory; nothing is left then.
  Serve serve(OwnedSocket connection);

 private:
  struct State;
  State& state_;
};

}  // namespace media::win::chrome_inspect
