#include "agent/agent_end.h"

#include <chrono>
#include <mutex>

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
    std::unique_lock lock(shared.agentMutex);
    shared.ending = true;
    shared.changed.notify_all();
    // Whoever is starting a child now ends it itself, as the host is ending.
    shared.changed.wait_for(lock, longestSpawn, [&shared] { return shared.spawning == 0; });
    owned = forgetOwnedAgent(shared);
  }
  if (owned) terminateProcess(owned);  // first of all: whoever ended us may not leave us long
  stopTurns();
  for (const CancelSlot slot : {CancelSlot::realtime, CancelSlot::events, CancelSlot::plain}) {
    abortRequests(slot);
  }
  endProcess(owned);
}

bool waitUnlessEnding(std::uint32_t ms) {
  AgentShared& shared = agentShared();
  std::unique_lock lock(shared.agentMutex);
  const auto limit = std::chrono::milliseconds(ms);
  return !shared.changed.wait_for(lock, limit, [&shared] { return shared.ending.load(); });
}

}  // namespace media::win::chrome_inspect
