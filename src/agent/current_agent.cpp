#include "agent/current_agent.h"

#include <functional>
#include <utility>

#include "agent/agent_shared.h"
#include "platform/clock.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint64_t longestWatchGapMs = 15000;

// The time was read before the lock was taken: what happened meanwhile is not long ago, but 0.
std::uint64_t elapsedSince(std::uint64_t then, std::uint64_t now) {
  return now > then ? now - then : 0;
}

bool idleStopDue(AgentShared& shared, std::uint64_t now) MORVA_REQUIRES(shared.agentMutex) {
  const std::uint64_t gap = elapsedSince(std::exchange(shared.lastWatchMs, now), now);
  if (gap > longestWatchGapMs && shared.lastActivityMs != 0) shared.lastActivityMs = now;
  return shared.ownedProcess && shared.users < 1 && shared.lastActivityMs != 0 &&
         elapsedSince(shared.lastActivityMs, now) >= agentIdleLimitMs;
}

// True when there was an owned agent to end. `isDue` is called with the lock held.
bool stopOwnedAgentIf(const std::function<bool(AgentShared&)>& isDue) {
  AgentShared& shared = agentShared();
  OwnedProcess owned;
  {
    const Lock lock(shared.agentMutex);
    if (isDue(shared)) owned = forgetOwnedAgent(shared);
  }
  endProcess(owned);
  return static_cast<bool>(owned);
}

}  // namespace

std::uint16_t currentAgentPort() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  return shared.port;
}

void touchAgentActivity() {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  shared.lastActivityMs = tickCountMs();
}

std::uint16_t candidateAgentPort() {
  AgentShared& shared = agentShared();
  OwnedProcess ended;  // closed after the lock is gone
  const Lock lock(shared.agentMutex);
  if (shared.ownedProcess && waitForExit(shared.ownedProcess, 0)) ended = forgetOwnedAgent(shared);
  return shared.port;
}

void adoptFoundAgent(std::uint16_t port) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  if (!shared.ownedProcess) shared.port = port;
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

bool stopIdleAgent(std::uint64_t nowMs) {
  return stopOwnedAgentIf([nowMs](AgentShared& shared) MORVA_REQUIRES(shared.agentMutex) {
    return idleStopDue(shared, nowMs);
  });
}

bool stopUnusedAgent() {
  return stopOwnedAgentIf([](AgentShared& shared)
                              MORVA_REQUIRES(shared.agentMutex) { return shared.users < 1; });
}

}  // namespace media::win::chrome_inspect
