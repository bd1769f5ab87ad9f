#pragma once

#include <string_view>

#include "platform/sockets.h"

// The few socket calls that a server or a client inside a test needs.
namespace media::win::chrome_inspect {

// Listens on a free port of 127.0.0.1, with room for `backlog` connections that nobody accepts.
OwnedSocket listenOnLoopback(std::uint16_t& port, int backlog);

// A port of 127.0.0.1 on which nobody listens.
std::uint16_t portWithoutListener();

// Waits for a connection; empty when the listener failed.
OwnedSocket acceptFrom(const OwnedSocket& listener);

// Empty when nobody listens.
OwnedSocket connectToLoopback(std::uint16_t port);

// 0 at the end of the stream or when it failed.
std::size_t receiveFrom(const OwnedSocket& socket, char* buffer, std::size_t capacity);

// False when not all went.
bool sendTo(const OwnedSocket& socket, std::string_view bytes);

}  // namespace media::win::chrome_inspect
