#include "platform/sockets.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>

namespace media::win::chrome_inspect {
namespace {

SOCKET socketOf(const OwnedSocket& socket) { return static_cast<SOCKET>(socket.get()); }

int oneSocketCall(std::size_t size) {
  return static_cast<int>(std::min<std::size_t>(size, MAXLONG));
}

// A child started meanwhile, with inheritance on for its own handles, must not get this one.
void keepFromChildren(SOCKET socket) {
  SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

void SocketTraits::close(Raw raw) { closesocket(static_cast<SOCKET>(raw)); }

bool startSockets() {
  WSADATA details = {};
  return WSAStartup(MAKEWORD(2, 2), &details) == 0;
}

bool openSocket(OwnedSocket& socket) {
  const SOCKET made = WSASocketW(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0,
                                 WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT);
  if (made == INVALID_SOCKET) return false;
  // What is accepted has the properties of its listener (learn.microsoft.com, accept).
  const BOOL on = TRUE;
  (void)setsockopt(made, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
  socket.reset(static_cast<SocketTraits::Raw>(made));
  return true;
}

bool bindLoopback(const OwnedSocket& socket, std::uint16_t port) {
  const sockaddr_in address = loopback(port);
  return bind(socketOf(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool connectLoopback(const OwnedSocket& socket, std::uint16_t port) {
  const sockaddr_in address = loopback(port);
  return connect(socketOf(socket), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
         0;
}

bool listenOn(const OwnedSocket& socket, int backlog) {
  return listen(socketOf(socket), backlog) == 0;
}

bool acceptOne(const OwnedSocket& listener, OwnedSocket& connection) {
  const SOCKET accepted = accept(socketOf(listener), nullptr, nullptr);
  if (accepted == INVALID_SOCKET) return false;
  keepFromChildren(accepted);
  connection.reset(static_cast<SocketTraits::Raw>(accepted));
  return true;
}

bool setSocketTimeoutsMs(const OwnedSocket& socket, std::uint32_t timeoutMs) {
  const DWORD limit = timeoutMs;
  const auto* value = reinterpret_cast<const char*>(&limit);
  return setsockopt(socketOf(socket), SOL_SOCKET, SO_RCVTIMEO, value, sizeof limit) == 0 &&
         setsockopt(socketOf(socket), SOL_SOCKET, SO_SNDTIMEO, value, sizeof limit) == 0;
}

bool receiveSome(const OwnedSocket& socket, char* buffer, std::size_t capacity, std::size_t& got) {
  const int count = recv(socketOf(socket), buffer, oneSocketCall(capacity), 0);
  if (count <= 0) return false;
  got = static_cast<std::size_t>(count);
  return true;
}

bool sendSome(const OwnedSocket& socket, const char* bytes, std::size_t size, std::size_t& sent) {
  const int count = send(socketOf(socket), bytes, oneSocketCall(size), 0);
  if (count <= 0) return false;
  sent = static_cast<std::size_t>(count);
  return true;
}

}  // namespace media::win::chrome_inspect
