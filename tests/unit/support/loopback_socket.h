#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/owned.h"

namespace media::win::chrome_inspect {

// The few socket calls that a server inside a test needs, on both systems.
struct LoopbackSocketTraits {
  using Raw = std::intptr_t;
  static Raw none() { return -1; }
  static bool valid(Raw raw) { return raw != -1; }
  static void close(Raw raw);
};
using LoopbackSocket = Owned<LoopbackSocketTraits>;

// Listens on a free port of 127.0.0.1, with room for `backlog` connections that nobody accepts.
LoopbackSocket listenOnLoopback(std::uint16_t& port, int backlog);

// Waits for a connection; empty when the listener failed.
LoopbackSocket acceptFrom(const LoopbackSocket& listener);

LoopbackSocket connectToLoopback(std::uint16_t port);

// 0 at the end of the stream or when it failed.
std::size_t receiveFrom(const LoopbackSocket& socket, char* buffer, std::size_t capacity);

// False when not all went.
bool sendTo(const LoopbackSocket& socket, std::string_view bytes);

// Ends our direction only.
void finishSending(const LoopbackSocket& socket);

}  // namespace media::win::chrome_inspect
