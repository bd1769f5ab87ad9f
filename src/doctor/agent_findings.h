#pragma once

#include <cstdint>
#include <vector>

#include "agent_process/cli_location.h"
#include "agent_process/port_scan.h"
#include "doctor/finding.h"

// Whether the host finds an agent or can start one: the command-line program and the agent's ports.
namespace media::win::chrome_inspect {

// Asks all ports of the agent at the same time; one that has not answered within `limitMs` counts
// as silent.
std::vector<PortState> askAgentPorts(std::uint32_t limitMs);

// All sources, those behind the first hit too.
std::vector<CliLook> lookAtCliSources();

// Pure.
Findings judgeAgent(const std::vector<CliLook>& looks, const std::vector<PortState>& ports);

}  // namespace media::win::chrome_inspect
