#include "agent/agent_end.h"

#include <chrono>

#include "agent/agent_shared.h"
#include "agent/running_turns.h"

namespace media::win::chrome_inspect {
namespace {

constexpr auto longestSpawn = std::chrono::milliseconds(1000);

}  // namespace

void cancelAllAgentRequests() {
  AgentShared& shared = agentShared();
  OwnedProcess owned;
  {
    const auto deadline = Condition::Clock::now() + longestSpawn;
    const Lock lock(shared.agentMutex);
    shared.ending = true;  // before anything breaks off: its end is nothing to report
    shared.changed.notifyAll();
    // Whoever is starting a child now ends it itself, as the host is ending.
    while (shared.spawning != 0 && shared.changed.waitUntil(shared.agentMutex, deadline)) continue;
    owned = forgetOwnedAgent(shared);
  }
  if (owned) terminateProcess(owned);  // first of all: whoever ended us may not leave us long
  stopTurns();
  for (const CancelSlot slot :
       {CancelSlot::realtime, CancelSlot::events, CancelSlot::speech, CancelSlot::plain}) {
    abortRequests(slot);
  }
  endProcess(owned);
}

bool agentsAreEnding() { return agentShared().ending; }

bool waitUnlessEnding(std::uint32_t ms) {
  AgentShared& shared = agentShared();
  const auto deadline = Condition::Clock::now() + std::chrono::milliseconds(ms);
  const Lock lock(shared.agentMutex);
  while (!shared.ending && shared.changed.waitUntil(shared.agentMutex, deadline)) continue;
  return !shared.ending;
}

}  // namespace media::win::chrome_inspect
