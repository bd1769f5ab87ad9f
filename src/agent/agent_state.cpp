#include "agent/agent_state.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "platform/clock.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t childGraceMs = 2000;
constexpr auto longestSpawn = std::chrono::milliseconds(1000);
constexpr std::uint64_t longestWatchGapMs = 15000;

using Requests = std::vector<std::shared_ptr<HttpExchange>>;

struct AgentState {
  std::mutex agentMutex;  // guards what follows but the atomics, which are written under it
  std::condition_variable changed;

  OwnedProcess ownedProcess;  // set exactly while the current agent is ours
  std::uint64_t ownedSerial = 0;
  std::uint16_t port = 0;
  std::uint64_t lastActivityMs = 0;
  std::uint64_t lastWatchMs = 0;

  bool starting = false;
  std::int32_t spawning = 0;  // permits that live
  std::uint64_t finishedStarts = 0;
  std::string lastStartError;

  std::array<Requests, cancelSlotCount> slots;

  std::int32_t users = 0;  // turns that run, and readings aloud
  std::atomic<std::uint64_t> stops = 0;
  std::atomic<bool> cancelRequested = false;
  std::atomic<bool> ending = false;
};

AgentState& agentState() {
  static AgentState& state = leaked<AgentState>();
  return state;
}

Requests& slotOf(AgentState& state, CancelSlot slot) {
  return state.slots.at(static_cast<std::size_t>(slot));
}

void abortAll(const Requests& requests) {
  for (const auto& request : requests) request->abort();
}

void endProcess(const OwnedProcess& process) {
  if (!process) return;
  terminateProcess(process);
  (void)waitForExit(process, childGraceMs);  // asked to end; what lingers is the system's to finish
}

// Takes the owned agent out of the state, for ending it without the lock. Lock held.
OwnedProcess forgetOwnedAgent(AgentState& state) {
  if (state.ownedProcess) state.port = 0;
  return std::exchange(state.ownedProcess, OwnedProcess());
}

// The time was read before the lock was taken: what happened meanwhile is not long ago, but 0.
std::uint64_t elapsedSince(std::uint64_t then, std::uint64_t now) {
  return now > then ? now - then : 0;
}

bool idleStopDue(AgentState& state, std::uint64_t now) {
  const std::uint64_t gap = elapsedSince(std::exchange(state.lastWatchMs, now), now);
  if (gap > longestWatchGapMs && state.lastActivityMs != 0) state.lastActivityMs = now;
  return state.ownedProcess && state.users < 1 && state.lastActivityMs != 0 &&
         elapsedSince(state.lastActivityMs, now) >= agentIdleLimitMs;
}

// True when there was an owned agent to end. `due` is asked under the lock.
template <class Due>
bool stopOwnedAgentIf(Due due) {
  AgentState& state = agentState();
  OwnedProcess owned;
  {
    const std::lock_guard lock(state.agentMutex);
    if (due(state)) owned = forgetOwnedAgent(state);
  }
  endProcess(owned);
  return static_cast<bool>(owned);
}

}  // namespace

std::uint16_t currentAgentPort() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  return state.port;
}

void touchAgentActivity() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  state.lastActivityMs = tickCountMs();
}

std::uint16_t candidateAgentPort() {
  AgentState& state = agentState();
  OwnedProcess ended;  // closed after the lock is gone
  const std::lock_guard lock(state.agentMutex);
  if (state.ownedProcess && waitForExit(state.ownedProcess, 0)) ended = forgetOwnedAgent(state);
  return state.port;
}

void adoptFoundAgent(std::uint16_t port) {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  if (!state.ownedProcess) state.port = port;
}

std::uint64_t adoptOwnedAgent(OwnedProcess process, std::uint16_t port) {
  AgentState& state = agentState();
  OwnedProcess previous;
  std::uint64_t serial = 0;
  {
    const std::lock_guard lock(state.agentMutex);
    if (state.ending) {
      previous = std::move(process);
    } else {
      previous = std::exchange(state.ownedProcess, std::move(process));
      state.port = port;
      state.lastActivityMs = tickCountMs();
      serial = ++state.ownedSerial;
    }
  }
  endProcess(previous);
  return serial;
}

void stopOwnedAgent(std::uint64_t serial) {
  AgentState& state = agentState();
  OwnedProcess owned;
  {
    const std::lock_guard lock(state.agentMutex);
    if (state.ownedSerial == serial) owned = forgetOwnedAgent(state);
  }
  endProcess(owned);
}

bool stopIdleAgent(std::uint64_t nowMs) {
  return stopOwnedAgentIf([nowMs](AgentState& state) { return idleStopDue(state, nowMs); });
}

bool stopUnusedAgent() {
  return stopOwnedAgentIf([](AgentState& state) { return state.users < 1; });
}

std::uint64_t finishedStarts() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  return state.finishedStarts;
}

StartTurn joinStart(std::uint64_t seenStarts, std::string& error) {
  AgentState& state = agentState();
  std::unique_lock lock(state.agentMutex);
  // Bounded: whoever starts tries five ports with a deadline each.
  state.changed.wait(lock, [&state] { return !state.starting || state.ending; });
  if (state.ending) return StartTurn::ending;
  if (state.finishedStarts != seenStarts) {
    error = state.lastStartError;
    return StartTurn::follower;
  }
  state.starting = true;
  return StartTurn::leader;
}

void finishStart(const std::string& error) {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  state.starting = false;
  ++state.finishedStarts;
  state.lastStartError = error;
  state.changed.notify_all();
}

SpawnPermit::SpawnPermit() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  granted_ = !state.ending;
  ++state.spawning;
}

SpawnPermit::~SpawnPermit() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  --state.spawning;
  state.changed.notify_all();
}

bool publishRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request) {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  if (state.ending) return false;
  slotOf(state, slot).push_back(request);
  return true;
}

void takeBackRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request) {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  std::erase(slotOf(state, slot), request);
}

void abortRequests(CancelSlot slot) {
  AgentState& state = agentState();
  Requests taken;
  {
    const std::lock_guard lock(state.agentMutex);
    taken.swap(slotOf(state, slot));
  }
  abortAll(taken);
}

AgentInUse::AgentInUse() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  ++state.users;
}

AgentInUse::~AgentInUse() {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  --state.users;
  state.lastActivityMs = tickCountMs();  // a long answer is activity up to its last word
}

RunningTurn::RunningTurn() : stopsBefore_(agentState().stops) {}

bool RunningTurn::stopped() const { return agentState().stops != stopsBefore_; }

bool RunningTurn::beginRequest() const {
  AgentState& state = agentState();
  const std::lock_guard lock(state.agentMutex);
  if (stopped()) return false;
  state.cancelRequested = false;
  return true;
}

void stopTurns() {
  AgentState& state = agentState();
  {
    const std::lock_guard lock(state.agentMutex);
    ++state.stops;
    state.cancelRequested = true;
  }
  abortRequests(CancelSlot::turn);
}

bool cancelRequested() { return agentState().cancelRequested; }

void cancelAllAgentRequests() {
  AgentState& state = agentState();
  OwnedProcess owned;
  {
    std::unique_lock lock(state.agentMutex);
    state.ending = true;
    state.changed.notify_all();
    // Whoever is starting a child now ends it itself, as the host is ending.
    state.changed.wait_for(lock, longestSpawn, [&state] { return state.spawning == 0; });
    owned = forgetOwnedAgent(state);
  }
  if (owned) terminateProcess(owned);  // first of all: whoever ended us may not leave us long
  stopTurns();
  for (const CancelSlot slot : {CancelSlot::realtime, CancelSlot::events, CancelSlot::plain}) {
    abortRequests(slot);
  }
  endProcess(owned);
}

bool waitUnlessEnding(std::uint32_t ms) {
  AgentState& state = agentState();
  std::unique_lock lock(state.agentMutex);
  const auto limit = std::chrono::milliseconds(ms);
  return !state.changed.wait_for(lock, limit, [&state] { return state.ending.load(); });
}

}  // namespace media::win::chrome_inspect
