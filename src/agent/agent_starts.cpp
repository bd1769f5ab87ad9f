#include "agent/agent_starts.h"

#include "agent/agent_shared.h"
#include "platform/locks.h"

namespace media::win::chrome_inspect {

std::uint64_t finishedStarts() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  return shared.finishedStarts;
}

StartRole joinStart(std::uint64_t seenStarts, std::string& error) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  // Bounded: whoever starts tries five ports with a deadline each.
  while (shared.starting && !shared.ending) shared.changed.wait(shared.agentMutex);
  if (shared.ending) return StartRole::ending;
  if (shared.finishedStarts != seenStarts) {
    error = shared.lastStartError;
    return StartRole::follower;
  }
  shared.lastStartError = "agent start failed";  // now, as later there may be no memory for it
  shared.starting = true;
  return StartRole::leader;
}

void finishStart(std::optional<std::string> error) noexcept {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  shared.starting = false;
  ++shared.finishedStarts;
  if (error) shared.lastStartError.swap(*error);
  shared.changed.notifyAll();
}

SpawnPermit::SpawnPermit() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  granted_ = !shared.ending;
  ++shared.spawning;
}

SpawnPermit::~SpawnPermit() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  --shared.spawning;
  shared.changed.notifyAll();
}

}  // namespace media::win::chrome_inspect
