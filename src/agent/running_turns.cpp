#include "agent/running_turns.h"

#include "agent/agent_shared.h"
#include "platform/clock.h"

namespace media::win::chrome_inspect {

AgentInUse::AgentInUse() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  ++shared.users;
}

AgentInUse::~AgentInUse() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  --shared.users;
  shared.lastActivityMs = tickCountMs();  // a long answer is activity up to its last word
}

RunningTurn::RunningTurn() : stopsBefore_(agentShared().stops) {}

bool RunningTurn::stopped() const { return agentShared().stops != stopsBefore_; }

bool RunningTurn::beginRequest() const {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  if (stopped()) return false;
  shared.cancelRequested = false;
  return true;
}

void stopTurns() {
  AgentShared& shared = agentShared();
  {
    const Lock lock(shared.agentMutex);
    ++shared.stops;
    shared.cancelRequested = true;
  }
  abortRequests(CancelSlot::turn);
}

bool cancelRequested() { return agentShared().cancelRequested; }

}  // namespace media::win::chrome_inspect
