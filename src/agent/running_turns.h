#pragma once

#include <cstdint>
#include <functional>
#include <vector>

// Use of the agent, and the chat turns that may be stopped. Threads: any.
namespace media::win::chrome_inspect {

// Keeps the idle stop away from the agent from construction to destruction, the end of which counts
// as activity.
class AgentInUse {
 public:
  AgentInUse();
  ~AgentInUse();
  AgentInUse(const AgentInUse&) = delete;
  AgentInUse& operator=(const AgentInUse&) = delete;
};

// Ends a turn towards the panel. Called by each thread that stops the turn, without a lock, perhaps
// when the turn has ended already: it owns what it uses. May block on standard output; never
// throws.
using TurnEnder = std::function<void()>;

// One running chat turn, counted from construction to destruction: the idle stop waits for it, and
// "stop" reaches it from the first moment on.
class RunningTurn {
 public:
  explicit RunningTurn(TurnEnder end = {});
  ~RunningTurn();
  RunningTurn(const RunningTurn&) = delete;
  RunningTurn& operator=(const RunningTurn&) = delete;
  // Whether "stop" came, or the host began to end, after this turn was counted.
  bool stopped() const;
  // Begins the turn's own request, unless the turn was stopped: from here on a failing request is
  // not blamed on an older cancellation. False when it was.
  bool beginRequest() const;

 private:
  AgentInUse inUse_;
  std::uint64_t stopsBefore_ = 0;
};

// Stops every running turn: marks it as stopped, aborts its request, and ends it, whatever its
// thread is blocked in.
void stopTurns();

// The same but for the last step, which is left to the caller: to call each of these.
[[nodiscard]] std::vector<TurnEnder> abortTurns();

// Set by a stop, or by the end of the host; cleared by the next turn that begins its request.
bool cancelRequested();

}  // namespace media::win::chrome_inspect
