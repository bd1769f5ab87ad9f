#pragma once

#include <string>
#include <string_view>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Performs one panel message and returns its reply (channel/envelope.h), or "" when it comes later.
// The first call starts the idle watchdog. Blocks for as long as the agent takes to answer, where
// the message's kind asks it something. Throws nlohmann::json::type_error for an argument of a
// wrong type. Threads: one call at a time, of whichever of the two threads for panel messages
// answers (panel_work.h).
std::string handleMessage(JsonView request);

// The not-ok reply to a message that cannot be answered: an ack, or a "hostProviderRpc" reply.
std::string failureReply(JsonView request, std::string_view error);

// Performs one panel message and sends its reply: exactly one, whatever is thrown, but for a kind
// that replies later on a thread of its own. The reply to a kind that does nothing is held
// (channel/framing.h); what is held is written before any other kind is performed.
void answerPanelMessage(JsonView request);

}  // namespace media::win::chrome_inspect
