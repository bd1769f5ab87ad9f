#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/request_slots.h"
#include "agent/running_turns.h"
#include "platform/http_client.h"
#include "platform/locks.h"
#include "platform/process.h"

// What the threads of the host share about the agent. Private to the files that define its five
// subjects: current_agent, agent_starts, request_slots, running_turns and agent_end. One lock
// guards all of it, as the end of the host and the idle stop decide about several at once; it is
// not held across a network call, a process start, a wait for a process or a log line.
namespace media::win::chrome_inspect {

struct PublishedRequest {
  std::shared_ptr<HttpExchange> request;
  std::uint64_t stream = 0;  // of a feed
};

struct AgentShared {
  Mutex agentMutex;
  Condition changed;

  // The current agent. The process is set exactly while it is ours.
  OwnedProcess ownedProcess MORVA_GUARDED_BY(agentMutex);
  std::uint64_t ownedSerial MORVA_GUARDED_BY(agentMutex) = 0;
  std::uint16_t port MORVA_GUARDED_BY(agentMutex) = 0;
  std::uint64_t lastActivityMs MORVA_GUARDED_BY(agentMutex) = 0;
  std::uint64_t lastWatchMs MORVA_GUARDED_BY(agentMutex) = 0;

  // Starts.
  bool starting MORVA_GUARDED_BY(agentMutex) = false;
  std::int32_t spawning MORVA_GUARDED_BY(agentMutex) = 0;  // permits that live
  std::uint64_t finishedStarts MORVA_GUARDED_BY(agentMutex) = 0;
  std::string lastStartError MORVA_GUARDED_BY(agentMutex);

  // Requests that another thread may abort.
  std::array<std::vector<PublishedRequest>, cancelSlotCount> slots MORVA_GUARDED_BY(agentMutex);

  // Turns. The atomics are written under the lock.
  std::int32_t users MORVA_GUARDED_BY(agentMutex) = 0;  // turns that run, and readings aloud
  std::map<const RunningTurn*, TurnEnder> turnEnders MORVA_GUARDED_BY(agentMutex);
  std::atomic<std::uint64_t> stops = 0;
  std::atomic<bool> cancelRequested = false;

  // The end of the host. Written under the lock.
  std::atomic<bool> ending = false;
};

AgentShared& agentShared();

// Takes the owned agent out of the state, to be ended without the lock.
OwnedProcess forgetOwnedAgent(AgentShared& shared) MORVA_REQUIRES(shared.agentMutex);

// Ends a process, if it is one, and waits up to 2 s for it. Lock not held.
void endProcess(const OwnedProcess& process);

}  // namespace media::win::chrome_inspect
