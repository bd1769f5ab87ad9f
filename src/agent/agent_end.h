#pragma once

#include <cstdint>

// The agent's side of the end of the host. Threads: any.
namespace media::win::chrome_inspect {

// Aborts every request, lets no new one and no new agent begin, and ends the owned agent: asked
// first, then waited for, up to 2 s.
void cancelAllAgentRequests();

// Waits `ms` milliseconds. False, at once, when the host is ending.
bool waitUnlessEnding(std::uint32_t ms);

}  // namespace media::win::chrome_inspect
