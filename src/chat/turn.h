#pragma once

#include <memory>
#include <nlohmann/json.hpp>

#include "agent/running_turns.h"
#include "chat/turn_events.h"

namespace media::win::chrome_inspect {

// A chat turn that a "send" message of the panel asked for. It is counted, and a "stop" ends it,
// from construction on.
struct ChatTurn {
  explicit ChatTurn(nlohmann::json sendMessage);

  const nlohmann::json message;
  const std::shared_ptr<TurnEvents> events;
  const RunningTurn running;
};

// Runs a turn on the calling thread: finds or starts the agent, sends the prompt, translates the
// streamed answer into panel events. Every turn ends in exactly one "agentDone" event, whatever
// fails: at once when it is stopped, while this call may be blocked in a request for longer. A
// stopped turn does not begin another one. Throws std::bad_alloc when there is no memory even for
// the end.
void run_turn(const ChatTurn& turn);

// Starts `run_turn` on a thread of its own. False, and nothing runs, when no thread could be
// started.
bool startTurn(const nlohmann::json& message);

}  // namespace media::win::chrome_inspect
