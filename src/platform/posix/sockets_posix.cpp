#include "platform/sockets.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "platform/posix/descriptor_posix.h"

namespace media::win::chrome_inspect {
namespace {

int descriptorOf(const OwnedSocket& socket) { return static_cast<int>(socket.get()); }

bool keep(int raw, OwnedSocket& socket) {
  OwnedDescriptor made = awayFromStandardStreams(OwnedDescriptor(raw));
  if (!made) return false;
  socket.reset(made.release());
  return true;
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

void SocketTraits::close(Raw raw) { ::close(static_cast<int>(raw)); }

bool startSockets() { return true; }

bool openSocket(OwnedSocket& socket) {
  if (!keep(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP), socket)) return false;
  const int on = 1;
  // What is accepted has the properties of its listener.
  (void)setsockopt(descriptorOf(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return setsockopt(descriptorOf(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0;
}

bool bindLoopback(const OwnedSocket& socket, std::uint16_t port) {
  const sockaddr_in address = loopback(port);
  return bind(descriptorOf(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
         0;
}

bool connectLoopback(const OwnedSocket& socket, std::uint16_t port) {
  const sockaddr_in address = loopback(port);
  // Linux goes on with a connection whose making a signal interrupted.
  return retryInterrupted([&] {
           return connect(descriptorOf(socket), reinterpret_cast<const sockaddr*>(&address),
                          sizeof address);
         }) == 0;
}

bool listenOn(const OwnedSocket& socket, int backlog) {
  return listen(descriptorOf(socket), backlog) == 0;
}

bool acceptOne(const OwnedSocket& listener, OwnedSocket& connection) {
  const int accepted = retryInterrupted(
      [&] { return accept4(descriptorOf(listener), nullptr, nullptr, SOCK_CLOEXEC); });
  return keep(accepted, connection);
}

bool setSocketTimeoutsMs(const OwnedSocket& socket, std::uint32_t timeoutMs) {
  timeval limit = {};
  limit.tv_sec = timeoutMs / 1000;
  limit.tv_usec = static_cast<suseconds_t>(timeoutMs % 1000) * 1000;
  const int raw = descriptorOf(socket);
  return setsockopt(raw, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
         setsockopt(raw, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

bool receiveSome(const OwnedSocket& socket, char* buffer, std::size_t capacity, std::size_t& got) {
  const ssize_t count =
      retryInterrupted([&] { return recv(descriptorOf(socket), buffer, capacity, 0); });
  if (count <= 0) return false;
  got = static_cast<std::size_t>(count);
  return true;
}

bool sendSome(const OwnedSocket& socket, const char* bytes, std::size_t size, std::size_t& sent) {
  const ssize_t count =
      retryInterrupted([&] { return send(descriptorOf(socket), bytes, size, MSG_NOSIGNAL); });
  if (count <= 0) return false;
  sent = static_cast<std::size_t>(count);
  return true;
}

}  // namespace media::win::chrome_inspect
