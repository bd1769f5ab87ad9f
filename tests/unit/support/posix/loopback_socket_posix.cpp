#include "support/loopback_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace media::win::chrome_inspect {
namespace {

int descriptorOf(const LoopbackSocket& socket) { return static_cast<int>(socket.get()); }

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

LoopbackSocket newSocket() {
  return LoopbackSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

void sendAtOnce(const LoopbackSocket& socket) {
  const int on = 1;
  ::setsockopt(descriptorOf(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

void LoopbackSocketTraits::close(Raw raw) { ::close(static_cast<int>(raw)); }

LoopbackSocket listenOnLoopback(std::uint16_t& port, int backlog) {
  LoopbackSocket listener = newSocket();
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (::bind(descriptorOf(listener), any, size) != 0 ||
      ::listen(descriptorOf(listener), backlog) != 0 ||
      ::getsockname(descriptorOf(listener), any, &size) != 0) {
    return LoopbackSocket();
  }
  port = ntohs(address.sin_port);
  return listener;
}

LoopbackSocket acceptFrom(const LoopbackSocket& listener) {
  LoopbackSocket accepted(::accept4(descriptorOf(listener), nullptr, nullptr, SOCK_CLOEXEC));
  sendAtOnce(accepted);
  return accepted;
}

LoopbackSocket connectToLoopback(std::uint16_t port) {
  LoopbackSocket socket = newSocket();
  const sockaddr_in address = loopback(port);
  if (::connect(descriptorOf(socket), reinterpret_cast<const sockaddr*>(&address),
                sizeof address) != 0) {
    return LoopbackSocket();
  }
  sendAtOnce(socket);
  return socket;
}

std::size_t receiveFrom(const LoopbackSocket& socket, char* buffer, std::size_t capacity) {
  const ssize_t count = ::recv(descriptorOf(socket), buffer, capacity, 0);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool sendTo(const LoopbackSocket& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(descriptorOf(socket), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void finishSending(const LoopbackSocket& socket) { ::shutdown(descriptorOf(socket), SHUT_WR); }

}  // namespace media::win::chrome_inspect
