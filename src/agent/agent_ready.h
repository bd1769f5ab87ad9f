#pragma once

#include <cstdint>

namespace media::win::chrome_inspect {

// What a port answers to "/ready". `ready`: status 200 and a JSON object whose "ready", if it has
// one, is true. `notReady`: status 200 and anything else. `foreign`: another status. `none`: no
// response header came.
enum class Readiness { ready, notReady, foreign, none };

// Asks the program that listens on `port` of 127.0.0.1. Blocks for `limitMs` at most, give or take
// one read; an answer may measure 64 KiB. Threads: any.
Readiness askReadiness(std::uint16_t port, std::uint32_t limitMs);

}  // namespace media::win::chrome_inspect
