#pragma once

#include <cstdint>
#include <vector>

namespace media::win::chrome_inspect {

inline constexpr std::uint32_t probeLimitMs = 15000;

// The first of `ports` on which an agent is ready; 0 when none is. All are asked at the same time:
// on Windows a closed port takes seconds to say so. Blocks until every port before the answer has
// been decided, `limitMs` at most; a port that has not answered by then counts as not ready.
std::int32_t firstReadyPort(const std::vector<std::int32_t>& ports,
                            std::uint32_t limitMs = probeLimitMs);

// The same for all of the agent's ports, the lowest first.
std::int32_t findReadyAgent();

}  // namespace media::win::chrome_inspect
