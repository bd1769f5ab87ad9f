#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/owned.h"

// TCP sockets on 127.0.0.1. Windows side: Winsock 2.2 (learn.microsoft.com, winsock2.h). No socket
// is inherited by children.
namespace media::win::chrome_inspect {

struct SocketTraits {
  using Raw = std::intptr_t;
  static Raw none() { return -1; }
  static bool valid(Raw raw) { return raw != -1; }
  static void close(Raw raw);
};
using OwnedSocket = Owned<SocketTraits>;

// Makes sockets usable in this process; to be called before the others, any number of times.
bool startSockets();

// A new stream socket that sends at once what it is handed, as do the connections that it accepts.
// (POSIX: the address may be reused, because there a port stays taken for a minute after its last
// connection.)
bool openSocket(OwnedSocket& socket);

bool bindLoopback(const OwnedSocket& socket, std::uint16_t port);
bool listenOn(const OwnedSocket& socket, int backlog);

// Connects to a port of this machine, blocking until that succeeds or is refused.
bool connectLoopback(const OwnedSocket& socket, std::uint16_t port);

// Blocks until a connection comes. False on any failure.
bool acceptOne(const OwnedSocket& listener, OwnedSocket& connection);

// Bounds every later receive and send on `socket`, in milliseconds.
bool setSocketTimeoutsMs(const OwnedSocket& socket, std::uint32_t timeoutMs);

// One receive of at most `capacity` bytes. False when the peer has closed, nothing came within the
// time-out, or the connection failed.
bool receiveSome(const OwnedSocket& socket, char* buffer, std::size_t capacity, std::size_t& got);

// One send of at most `size` bytes (size > 0). False when it failed or took nothing.
bool sendSome(const OwnedSocket& socket, const char* bytes, std::size_t size, std::size_t& sent);

}  // namespace media::win::chrome_inspect
