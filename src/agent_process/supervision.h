#pragma once

#include <cstdint>
#include <string>

namespace media::win::chrome_inspect {

// Who learns that an agent has come or gone. Set once, before any thread starts.
struct AgentListener {
  // An agent answers on `port`; `fresh`: it was started just now. Runs on the thread that looked
  // for the agent, before its ensureAgent returns; may block.
  void (*ready)(std::int32_t port, bool fresh) = nullptr;
  // The agent that we owned has been ended because nobody used it.
  void (*stopped)() = nullptr;
};
void setAgentListener(const AgentListener& listener);

// Makes sure that an agent answers: the one known, else one that answers on the ports 8090 to 8094,
// else one that we start. True when the listener knows of it; false with the reason in `error`:
// "morva-viewer-cli.exe is not on PATH", "llm agent --serve did not become ready", or "cancelled"
// when the host is ending. Blocks: up to 15 s for ports that accept but do not answer, and up to 16
// s for each of five starts. Threads: any; two callers never start two agents.
bool ensureAgent(std::string& error);

// Looks every 5 s whether the agent that we own has been idle for a minute, and ends it. Takes the
// calling thread for ever.
void idleWatchdog();

}  // namespace media::win::chrome_inspect
