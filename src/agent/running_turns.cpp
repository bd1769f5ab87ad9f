#include "agent/running_turns.h"

#include <utility>

#include "agent/agent_shared.h"
#include "agent/request_slots.h"
#include "platform/clock.h"
#include "platform/locks.h"

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

RunningTurn::RunningTurn(TurnEnder end) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  stopsBefore_ = shared.stops;
  if (end) shared.turnEnders.emplace(this, std::move(end));
}

RunningTurn::~RunningTurn() {
  TurnEnder ender;  // destroyed after the lock is gone
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  const auto known = shared.turnEnders.find(this);
  if (known == shared.turnEnders.end()) return;
  ender.swap(known->second);
  shared.turnEnders.erase(known);
}

bool RunningTurn::stopped() const { return agentShared().stops != stopsBefore_; }

bool RunningTurn::beginRequest() const {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  if (stopped()) return false;
  shared.cancelRequested = false;
  return true;
}

std::vector<TurnEnder> abortTurns() {
  std::vector<TurnEnder> enders;
  AgentShared& shared = agentShared();
  {
    const Lock lock(shared.agentMutex);
    enders.reserve(shared.turnEnders.size());  // or throws, and nothing has been stopped
    ++shared.stops;
    shared.cancelRequested = true;
    for (const auto& [turn, ender] : shared.turnEnders) enders.push_back(ender);
  }
  abortRequests(CancelSlot::turn);
  return enders;
}

void stopTurns() {
  for (const TurnEnder& end : abortTurns()) end();
}

bool cancelRequested() { return agentShared().cancelRequested; }

}  // namespace media::win::chrome_inspect
