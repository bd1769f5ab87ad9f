#pragma once

#include "agent_process/supervision.h"

namespace media::win::chrome_inspect {

// What is done about agents: for one that answers our tools are registered with it, the state
// "connected" is sent to the panel, and its chat events are forwarded; for one that was stopped
// that ends and, when no other agent is current, "disconnected" is sent.
AgentListener agentFollower();

}  // namespace media::win::chrome_inspect
