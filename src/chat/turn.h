#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/running_turns.h"

namespace media::win::chrome_inspect {

// Runs one chat turn to its end on the calling thread: finds or starts the agent, sends the prompt
// of the panel's "send" message, translates the streamed answer into panel events. Every turn ends
// in exactly one "agentDone" event, whatever fails; nothing is thrown. `running` was counted when
// the message was dispatched, so that a "stop" since then is seen.
void run_turn(const nlohmann::json& message, const RunningTurn& running);

// Starts `run_turn` on a thread of its own. False, and nothing runs, when no thread could be
// started.
bool startTurn(const nlohmann::json& message);

}  // namespace media::win::chrome_inspect
