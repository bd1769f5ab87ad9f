#pragma once

#include "support/test_system.h"
#include "support/testing.h"

// The few socket calls that a server or a client inside a test needs.
namespace media::win::chrome_inspect {

// Listens on a free port of 127.0.0.1, with room for `backlog` connections that nobody accepts.
inline OwnedSocket listenOnLoopback(std::uint16_t& port, int backlog) {
  OwnedSocket listener;
  EXPECT_TRUE(startSockets() && openSocket(listener) && bindLoopback(listener, 0) &&
              listenOn(listener, backlog));
  port = portOf(listener);
  return listener;
}

// A port of 127.0.0.1 on which nobody listens.
inline std::uint16_t portWithoutListener() {
  std::uint16_t port = 0;
  (void)listenOnLoopback(port, 1);
  return port;
}

// Waits for a connection; empty when the listener failed. A call on it takes a minute at most:
// Wine does not always wake up a send whose connection is reset in that moment.
inline OwnedSocket acceptFrom(const OwnedSocket& listener) {
  constexpr std::uint32_t longestCallMs = 60'000;
  OwnedSocket accepted;
  if (acceptOne(listener, accepted)) EXPECT_TRUE(setSocketTimeoutsMs(accepted, longestCallMs));
  return accepted;
}

// Empty when nobody listens.
inline OwnedSocket connectToLoopback(std::uint16_t port) {
  OwnedSocket socket;
  EXPECT_TRUE(startSockets() && openSocket(socket));
  if (!connectLoopback(socket, port)) return OwnedSocket();
  return socket;
}

// 0 at the end of the stream or when it failed.
inline std::size_t receiveFrom(const OwnedSocket& socket, char* buffer, std::size_t capacity) {
  std::size_t got = 0;
  return receiveSome(socket, buffer, capacity, got) ? got : 0;
}

// All that comes until then.
inline std::string receiveToEnd(const OwnedSocket& socket) {
  std::string all;
  char buffer[4096];
  while (const std::size_t got = receiveFrom(socket, buffer, sizeof buffer))
    all.append(buffer, got);
  return all;
}

// False when not all went.
inline bool sendTo(const OwnedSocket& socket, std::string_view bytes) {
  for (std::size_t sent = 0; !bytes.empty(); bytes.remove_prefix(sent)) {
    if (!sendSome(socket, bytes.data(), bytes.size(), sent)) return false;
  }
  return true;
}

}  // namespace media::win::chrome_inspect
