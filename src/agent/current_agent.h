#pragma once

#include <array>
#include <cstdint>

#include "platform/process.h"

// Which agent is current, who owns it, and when it was last wanted. Threads: any.
namespace media::win::chrome_inspect {

// Where agents are looked for and started, in this order.
inline constexpr std::array<std::uint16_t, 5> agentPorts = {8090, 8091, 8092, 8093, 8094};

inline constexpr std::uint64_t agentIdleLimitMs = 60000;

// One agent: where it answers and, when we own it, the number of the ownership.
struct AgentId {
  std::uint16_t port = 0;    // 0: none
  std::uint64_t serial = 0;  // 0: it was only found
  explicit operator bool() const { return port != 0; }
  bool operator==(const AgentId&) const = default;
};

// The current agent; none when none is known.
AgentId currentAgent();
std::uint16_t currentAgentPort();

// Whether an agent that we owned is not ours any more: it has been ended, or has ended.
bool isGoneAgent(const AgentId& agent);

// Records that the user, or a turn, wants something of the agent now.
void touchAgentActivity();

// The agent to look at first: the current one, unless it was a child of ours that has ended, which
// is then forgotten.
AgentId candidateAgent();

// Makes an agent that answers on `port`, and is not ours, the current one; one that we own is never
// overwritten. Returns who answers there.
AgentId adoptFoundAgent(std::uint16_t port);

// Makes a child we started the owned and current agent; the one owned before is ended. Returns the
// serial number of the ownership, or 0 when the host is ending: the child is then ended at once.
std::uint64_t adoptOwnedAgent(OwnedProcess process, std::uint16_t port);

// Ends the owned agent, waiting up to 2 s for it, if it still is the one with this number. An agent
// that was only found is left alone.
void stopOwnedAgent(std::uint64_t serial);

// Ends the owned agent when, at the tick count `nowMs`, it has been idle for `agentIdleLimitMs`: no
// use of it, no activity. To be called every few seconds; a gap of more than 15 s, the first one
// since `beginIdleWatch`, means that the machine slept, which is not idleness. Returns the agent
// that was ended, if one was.
void beginIdleWatch(std::uint64_t nowMs);
AgentId stopIdleAgent(std::uint64_t nowMs);

// Ends the owned agent unless it is in use, and returns it if it was ended.
AgentId stopUnusedAgent();

}  // namespace media::win::chrome_inspect
