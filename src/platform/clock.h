#pragma once

#include <cstdint>

namespace media::win::chrome_inspect {

// Milliseconds since the system started, never going backwards; counts time asleep where the
// system does (GetTickCount64). Also the source of turn ids, so it is not a per-process clock.
std::uint64_t tickCountMs();

// Suspends the calling thread for `ms` milliseconds; on Windows up to one clock tick less.
void sleepMs(std::uint32_t ms);

}  // namespace media::win::chrome_inspect
