#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace media::win::chrome_inspect {

// Who learns that an agent has come or gone. Set once, before any thread starts.
struct AgentListener {
  // An agent answers on `port`; `fresh`: it was started just now. Runs on the thread that looked
  // for the agent, before its ensureAgent returns; may block.
  void (*ready)(std::uint16_t port, bool fresh) = nullptr;
  // The agent that we owned has been ended because nobody used it.
  void (*stopped)() = nullptr;
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

}  // namespace media::win::chrome_inspect
