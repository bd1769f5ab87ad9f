#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/http_client.h"
#include "platform/process.h"

// What the threads of the host share about the agent: which one is current, who owns it, what runs
// on it. One lock, `agentMutex`, guards all of it; none of these functions holds it across a
// network call, a process start, a wait for a process or a log line. Threads: any.
namespace media::win::chrome_inspect {

// Where agents are looked for and started, in this order.
inline constexpr std::array<std::uint16_t, 5> agentPorts = {8090, 8091, 8092, 8093, 8094};
inline constexpr std::uint64_t agentIdleLimitMs = 60000;

// --- The current agent ---

// The port of the current agent; 0 when none is known.
std::uint16_t currentAgentPort();

// Records that the user, or a turn, wants something of the agent now.
void touchAgentActivity();

// The port to look at first: the current one, unless it belonged to a child of ours that has ended,
// which is then forgotten. 0 when there is none.
std::uint16_t candidateAgentPort();

// Makes an agent that answers on `port`, and is not ours, the current one; the port of an agent
// that we own is never overwritten.
void adoptFoundAgent(std::uint16_t port);

// Makes a child we started the owned and current agent; the one owned before is ended. Returns the
// serial number of the ownership, or 0 when the host is ending: the child is then ended at once.
std::uint64_t adoptOwnedAgent(OwnedProcess process, std::uint16_t port);

// Ends the owned agent, waiting up to 2 s for it, if it still is the one with this number. An agent
// that was only found is left alone.
void stopOwnedAgent(std::uint64_t serial);

// Ends the owned agent when, at the tick count `nowMs`, it has been idle for `agentIdleLimitMs`: no
// turn, no activity. To be called every few seconds; a longer gap means that the machine slept,
// which is not idleness. True when the agent was ended.
bool stopIdleAgent(std::uint64_t nowMs);

// Ends the owned agent unless a turn uses it. True when it was ended.
bool stopUnusedAgent();

// --- Starting: one at a time ---

enum class StartTurn { leader, follower, ending };

// How many starts have come to an end so far.
std::uint64_t finishedStarts();

// Asks to start an agent. `leader`: nobody else is at it; call finishStart afterwards. `follower`:
// another caller's start has ended since `seenStarts` was read, or was waited for now, and `error`
// is its error, empty when it succeeded. `ending`: the host is.
StartTurn joinStart(std::uint64_t seenStarts, std::string& error);
void finishStart(const std::string& error);

// The moment between a process start and its adoption: while a permit lives, the end of the host
// waits for it (up to 1 s), so that no child is left behind unseen.
class SpawnPermit {
 public:
  SpawnPermit();
  ~SpawnPermit();
  SpawnPermit(const SpawnPermit&) = delete;
  SpawnPermit& operator=(const SpawnPermit&) = delete;
  // False when the host is ending: start nothing.
  bool granted() const { return granted_; }

 private:
  bool granted_;
};

// --- Requests that another thread may abort ---

// Where a request is published while it runs. Requests without a slot of their own are `plain`:
// only the end of the host aborts them.
enum class CancelSlot { plain, turn, events, realtime };
inline constexpr std::size_t cancelSlotCount = 4;

// Publishes a running request. False when the host is ending; it must then not be sent.
bool publishRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request);
// Takes a request back that has come to its end; nothing when another thread has taken it already.
void takeBackRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request);
// Takes all requests out of the slot and aborts them.
void abortRequests(CancelSlot slot);

// --- Turns ---

// Keeps the idle stop away from the agent from construction to destruction, the end of which counts
// as activity.
class AgentInUse {
 public:
  AgentInUse();
  ~AgentInUse();
  AgentInUse(const AgentInUse&) = delete;
  AgentInUse& operator=(const AgentInUse&) = delete;
};

// One running chat turn, counted from construction to destruction: the idle stop waits for it, and
// "stop" reaches it from the first moment on.
class RunningTurn {
 public:
  RunningTurn();
  // Whether "stop" came, or the host began to end, after this turn was counted.
  bool stopped() const;
  // Begins the turn's own request, unless the turn was stopped: from here on a failing request is
  // not blamed on an older cancellation. False when it was.
  bool beginRequest() const;

 private:
  AgentInUse inUse_;
  std::uint64_t stopsBefore_;
};

// Stops every running turn: marks it as stopped and aborts its request.
void stopTurns();

// Set by a stop, or by the end of the host; cleared by the next turn that begins its request.
bool cancelRequested();

// --- The end of the host ---

// Aborts every request, lets no new one and no new agent begin, and ends the owned agent: asked
// first, then waited for, up to 2 s.
void cancelAllAgentRequests();

// Waits `ms` milliseconds. False, at once, when the host is ending.
bool waitUnlessEnding(std::uint32_t ms);

}  // namespace media::win::chrome_inspect
