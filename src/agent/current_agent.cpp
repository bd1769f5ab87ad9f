#include "agent/current_agent.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "agent/agent_shared.h"
#include "platform/clock.h"
#include "platform/locks.h"
#include "platform/owned.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint64_t longestWatchGapMs = 15000;

// The time was read before the lock was taken: what happened meanwhile is not long ago, but 0.
std::uint64_t elapsedSince(std::uint64_t then, std::uint64_t now) {
  return now - std::min(then, now);
}

AgentId currentOf(const AgentShared& shared) MORVA_REQUIRES(shared.agentMutex) {
  return {shared.port, shared.ownedProcess ? shared.ownedSerial : 0};
}

bool idleStopDue(AgentShared& shared, std::uint64_t now) MORVA_REQUIRES(shared.agentMutex) {
  const std::uint64_t gap = elapsedSince(std::exchange(shared.lastWatchMs, now), now);
  if (gap > longestWatchGapMs && shared.lastActivityMs != 0) shared.lastActivityMs = now;
  return shared.ownedProcess && shared.users < 1 && shared.lastActivityMs != 0 &&
         elapsedSince(shared.lastActivityMs, now) >= agentIdleLimitMs;
}

// Returns the agent that was ended, if there was an owned one. `isDue` is called with the lock
// held.
AgentId stopOwnedAgentIf(const std::function<bool(AgentShared&)>& isDue) {
  AgentShared& shared = agentShared();
  AgentId ended;
  OwnedProcess owned;
  {
    const Lock lock(shared.agentMutex);
    if (isDue(shared) && shared.ownedProcess) {
      ended = currentOf(shared);
      owned = forgetOwnedAgent(shared);
    }
  }
  endProcess(owned);
  return ended;
}

}  // namespace

AgentId currentAgent() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  return currentOf(shared);
}

std::uint16_t currentAgentPort() { return currentAgent().port; }

bool isGoneAgent(const AgentId& agent) {
  return agent.serial != 0 && agent.serial != currentAgent().serial;
}

void touchAgentActivity() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  shared.lastActivityMs = tickCountMs();
}

AgentId candidateAgent() {
  AgentShared& shared = agentShared();
  OwnedProcess ended;  // closed after the lock is gone
  const Lock lock(shared.agentMutex);
  if (shared.ownedProcess && waitForExit(shared.ownedProcess, 0)) ended = forgetOwnedAgent(shared);
  return currentOf(shared);
}

AgentId adoptFoundAgent(std::uint16_t port) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  if (!shared.ownedProcess) shared.port = port;
  return shared.port == port ? currentOf(shared) : AgentId{port};
}

std::uint64_t adoptOwnedAgent(OwnedProcess process, std::uint16_t port) {
  AgentShared& shared = agentShared();
  OwnedProcess previous;
  std::uint64_t serial = 0;
  {
    const Lock lock(shared.agentMutex);
    if (shared.ending) {
      previous = std::move(process);
    } else {
      previous = std::exchange(shared.ownedProcess, std::move(process));
      shared.port = port;
      shared.lastActivityMs = tickCountMs();
      serial = ++shared.ownedSerial;
    }
  }
  endProcess(previous);
  return serial;
}

void stopOwnedAgent(std::uint64_t serial) {
  (void)stopOwnedAgentIf([serial](AgentShared& shared) MORVA_REQUIRES(shared.agentMutex) {
    return shared.ownedSerial == serial;
  });
}

void beginIdleWatch(std::uint64_t nowMs) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  shared.lastWatchMs = nowMs;
}

AgentId stopIdleAgent(std::uint64_t nowMs) {
  return stopOwnedAgentIf([nowMs](AgentShared& shared) MORVA_REQUIRES(shared.agentMutex) {
    return idleStopDue(shared, nowMs);
  });
}

AgentId stopUnusedAgent() {
  return stopOwnedAgentIf([](AgentShared& shared)
                              MORVA_REQUIRES(shared.agentMutex) { return shared.users < 1; });
}

}  // namespace media::win::chrome_inspect
