#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "chat/turn_events.h"

namespace media::win::chrome_inspect {

// Translates one agent event ("object" is "morva.event") of a turn's stream into panel events:
// thinking, tool activity, command runs, consent. Unknown types are passed over. May block on
// standard output. Throws nlohmann::json::type_error for members of a wrong type.
void translateAgentEvent(TurnEvents& events, const std::string& chatSessionId,
                         nlohmann::json event);

}  // namespace media::win::chrome_inspect
