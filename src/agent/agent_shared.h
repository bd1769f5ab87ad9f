#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "agent/request_slots.h"
#include "platform/http_client.h"
#include "platform/process.h"

// What the threads of the host share about the agent. Private to the files that define its five
// subjects: current_agent, agent_starts, request_slots, running_turns and agent_end. One lock
// guards all of it, as the end of the host and the idle stop decide about several at once; it is
// not held across a network call, a process start, a wait for a process or a log line.
namespace media::win::chrome_inspect {

struct AgentShared {
  std::mutex agentMutex;  // guards what follows but the atomics, which are written under it
  std::condition_variable changed;

  // The current agent.
  OwnedProcess ownedProcess;  // set exactly while the current agent is ours
  std::uint64_t ownedSerial = 0;
  std::uint16_t port = 0;
  std::uint64_t lastActivityMs = 0;
  std::uint64_t lastWatchMs = 0;

  // Starts.
  bool starting = false;
  std::int32_t spawning = 0;  // permits that live
  std::uint64_t finishedStarts = 0;
  std::string lastStartError;

  // Requests that another thread may abort.
  std::array<std::vector<std::shared_ptr<HttpExchange>>, cancelSlotCount> slots;

  // Turns.
  std::int32_t users = 0;  // turns that run, and readings aloud
  std::atomic<std::uint64_t> stops = 0;
  std::atomic<bool> cancelRequested = false;

  // The end of the host.
  std::atomic<bool> ending = false;
};

AgentShared& agentShared();

// Takes the owned agent out of the state, to be ended without the lock. Lock held.
OwnedProcess forgetOwnedAgent(AgentShared& shared);

// Ends a process, if it is one, and waits up to 2 s for it. Lock not held.
void endProcess(const OwnedProcess& process);

}  // namespace media::win::chrome_inspect
