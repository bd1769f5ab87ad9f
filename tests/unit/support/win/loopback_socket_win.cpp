#include "support/loopback_socket.h"

#include <winsock2.h>

#include <algorithm>
#include <climits>

namespace media::win::chrome_inspect {
namespace {

SOCKET socketOf(const LoopbackSocket& socket) { return static_cast<SOCKET>(socket.get()); }

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

LoopbackSocket newSocket() {
  static const int started = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data);
  }();
  if (started != 0) return LoopbackSocket();
  return LoopbackSocket(static_cast<LoopbackSocketTraits::Raw>(::socket(AF_INET, SOCK_STREAM, 0)));
}

void sendAtOnce(const LoopbackSocket& socket) {
  const char on = 1;
  ::setsockopt(socketOf(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int oneCall(std::size_t size) { return static_cast<int>(std::min<std::size_t>(size, INT_MAX)); }

}  // namespace

void LoopbackSocketTraits::close(Raw raw) { ::closesocket(static_cast<SOCKET>(raw)); }

LoopbackSocket listenOnLoopback(std::uint16_t& port, int backlog) {
  LoopbackSocket listener = newSocket();
  sockaddr_in address = loopback(0);
  int size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (::bind(socketOf(listener), any, size) != 0 || ::listen(socketOf(listener), backlog) != 0 ||
      ::getsockname(socketOf(listener), any, &size) != 0) {
    return LoopbackSocket();
  }
  port = ntohs(address.sin_port);
  return listener;
}

LoopbackSocket acceptFrom(const LoopbackSocket& listener) {
  LoopbackSocket accepted(
      static_cast<LoopbackSocketTraits::Raw>(::accept(socketOf(listener), nullptr, nullptr)));
  sendAtOnce(accepted);
  return accepted;
}

LoopbackSocket connectToLoopback(std::uint16_t port) {
  LoopbackSocket socket = newSocket();
  const sockaddr_in address = loopback(port);
  if (::connect(socketOf(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    return LoopbackSocket();
  }
  sendAtOnce(socket);
  return socket;
}

std::size_t receiveFrom(const LoopbackSocket& socket, char* buffer, std::size_t capacity) {
  const int count = ::recv(socketOf(socket), buffer, oneCall(capacity), 0);
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

bool sendTo(const LoopbackSocket& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const int sent = ::send(socketOf(socket), bytes.data(), oneCall(bytes.size()), 0);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

void finishSending(const LoopbackSocket& socket) { ::shutdown(socketOf(socket), SD_SEND); }

}  // namespace media::win::chrome_inspect
