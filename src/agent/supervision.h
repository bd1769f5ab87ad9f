#pragma once

#include <cstdint>
#include <string>

namespace media::win::chrome_inspect {

// The forwarding of the agent's chat events, which begins and ends with the agent. Handed down from
// above, once, before any thread starts.
struct EventsPump {
  void (*start)(std::int32_t port, bool fresh) = nullptr;
  void (*stop)() = nullptr;
};
void setEventsPump(const EventsPump& pump);

// Makes sure that an agent answers: the one known, else one that answers on the ports 8090 to 8094,
// else one that we start. True when it has been told of our tools and the panel of it; false with
// the reason in `error`: "morva-viewer-cli.exe is not on PATH", "llm agent --serve did not become
// ready", or "cancelled" when the host is ending. Blocks: up to 15 s for ports that accept but do
// not answer, and up to 16 s for each of five starts. Threads: any; two callers never start two
// agents.
bool ensureAgent(std::string& error);

// Looks every 5 s whether the agent that we own has been idle for a minute, and ends it. Takes the
// calling thread for ever.
void idleWatchdog();

}  // namespace media::win::chrome_inspect
