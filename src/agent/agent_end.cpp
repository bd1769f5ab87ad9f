#include "agent/agent_end.h"

#include <chrono>
#include <utility>
#include <vector>

#include "agent/agent_shared.h"
#include "agent/request_slots.h"
#include "agent/running_turns.h"
#include "common/bounded.h"
#include "platform/locks.h"
#include "platform/process.h"

namespace media::win::chrome_inspect {
namespace {

constexpr auto longestSpawn = std::chrono::milliseconds(1000);
constexpr std::uint32_t lastWordsMs = 200;

// Bounded: the rest of the end does not wait for a browser that does not read.
void endTurns(std::vector<TurnEnder> enders) {
  if (enders.empty()) return;
  (void)runBounded("turn ends", lastWordsMs, [enders = std::move(enders)] {
    for (const TurnEnder& end : enders) end();
    return true;
  });
}

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
  std::vector<TurnEnder> enders = abortTurns();
  for (const CancelSlot slot :
       {CancelSlot::realtime, CancelSlot::events, CancelSlot::speech, CancelSlot::plain}) {
    abortRequests(slot);
  }
  endTurns(std::move(enders));
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
