#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/current_agent.h"

namespace media::win::chrome_inspect {

// Who learns that an agent has come or gone. Set once, before any thread starts. Both functions run
// on the thread that found out, and may block: calls for different agents may overlap and overtake
// each other.
struct AgentListener {
  // The agent answers. Called before the ensureAgent that looked for it returns.
  void (*ready)(const AgentId& agent) = nullptr;
  // An agent that we owned has been ended because nobody used it.
  void (*stopped)(const AgentId& agent) = nullptr;
};
void setAgentListener(const AgentListener& listener);

// Makes sure that an agent answers: the one known, else one that answers on the ports 8090 to 8094,
// else one that we start. Returns the port on which it answered, after the listener's `ready` has
// returned. Nothing on failure, with the reason in `error`: "morva-viewer-cli.exe is not on PATH",
// "llm agent --serve did not become ready", or "cancelled" when the host is ending. Use this port
// for what comes next: the current one may be another by then, or none. Blocks: up to 15 s for
// ports that accept but do not answer, and up to 16 s for each of five starts. Threads: any; two
// callers never start two agents.
[[nodiscard]] std::optional<std::uint16_t> ensureAgent(std::string& error);

// Ends the agent that we own, and reports that to the listener, when it has been idle for a minute
// at the tick count `nowMs` (agent/current_agent.h, stopIdleAgent).
void endIdleAgent(std::uint64_t nowMs);

// Does so every 5 s. Never returns.
void idleWatchdog();

// Ends the agent that we own unless it is in use, and reports that to the listener.
void endUnusedAgent();

}  // namespace media::win::chrome_inspect
