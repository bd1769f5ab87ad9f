#include "support/loopback_socket.h"

#include <gtest/gtest.h>

#include "support/test_system.h"

namespace media::win::chrome_inspect {

OwnedSocket listenOnLoopback(std::uint16_t& port, int backlog) {
  OwnedSocket listener;
  EXPECT_TRUE(startSockets() && openSocket(listener) && bindLoopback(listener, 0) &&
              listenOn(listener, backlog));
  port = portOf(listener);
  return listener;
}

std::uint16_t portWithoutListener() {
  std::uint16_t port = 0;
  (void)listenOnLoopback(port, 1);
  return port;
}

OwnedSocket acceptFrom(const OwnedSocket& listener) {
  OwnedSocket accepted;
  if (acceptOne(listener, accepted)) sendAtOnce(accepted);
  return accepted;
}

OwnedSocket connectToLoopback(std::uint16_t port) {
  OwnedSocket socket;
  EXPECT_TRUE(startSockets() && openSocket(socket));
  if (!connectLoopback(socket, port)) return OwnedSocket();
  sendAtOnce(socket);
  return socket;
}

std::size_t receiveFrom(const OwnedSocket& socket, char* buffer, std::size_t capacity) {
  std::size_t got = 0;
  return receiveSome(socket, buffer, capacity, got) ? got : 0;
}

bool sendTo(const OwnedSocket& socket, std::string_view bytes) {
  for (std::size_t sent = 0; !bytes.empty(); bytes.remove_prefix(sent)) {
    if (!sendSome(socket, bytes.data(), bytes.size(), sent)) return false;
  }
  return true;
}

}  // namespace media::win::chrome_inspect
