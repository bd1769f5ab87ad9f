#pragma once

#include <cstdint>
#include <string>

#include "agent/current_agent.h"
#include "agent_process/cli_location.h"

namespace media::win::chrome_inspect {

inline constexpr std::uint32_t readyDeadlineMs = 12000;

// The command line that has the program at `path` serve the agent on `port`.
std::wstring agentCommandLine(const std::wstring& path, std::uint16_t port);

// Starts `cli`, whose path is not empty, as the owned agent on `port`, waits until it answers, and
// returns it. None when it could not be started, ended, or did not answer within `readyDeadlineMs`
// and one last look; the reason is in the host log, and the child this call started has been ended.
// Blocks up to 16 s. Threads: one at a time (agent/agent_starts.h, joinStart).
AgentId spawnAgent(const CliLocation& cli, std::uint16_t port);

}  // namespace media::win::chrome_inspect
