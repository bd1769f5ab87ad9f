#pragma once

#include <cstdint>
#include <string>

// The loopback HTTP server through which the agent reaches the browser tools and the extension
// hands over files. One request per connection; at most sixteen connections at a time, more are
// closed.
namespace media::win::chrome_inspect {

// Tried in this order; the first that is free is taken.
inline constexpr std::uint16_t firstToolServerPort = 39270;
inline constexpr std::uint16_t lastToolServerPort = 39279;

// Starts the listener and waits, 2 s at most, until it is bound. Called once, from main. Without a
// port or a token the server is absent for the life of the process.
void startToolServer();

// The bound port, 0 when there is none. Threads: any.
std::int32_t toolServerPort();

// 64 hexadecimal digits that every request must carry, made when first asked for; empty when the
// system returned no random bytes. Goes into no log line. Threads: any.
const std::string& sessionToken();

// Where the agent finds the tools, and where the extension sends files; empty without port or
// token.
std::string agentToolsUrl();
std::string contextFileUrl();

}  // namespace media::win::chrome_inspect
