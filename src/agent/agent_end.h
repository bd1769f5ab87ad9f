#pragma once

#include <cstdint>

// The agent's side of the end of the host. Threads: any.
namespace media::win::chrome_inspect {

// Lets no new request and no new agent begin, and forwards no event of a feed any more; then aborts
// every request, ends the running turns, and ends the owned agent: asked first, then waited for, up
// to 2 s.
void cancelAllAgentRequests();

// Whether that has begun.
bool agentsAreEnding();

// Waits `ms` milliseconds. False, at once, when the host is ending.
bool waitUnlessEnding(std::uint32_t ms);

}  // namespace media::win::chrome_inspect
