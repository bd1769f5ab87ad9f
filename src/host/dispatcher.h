#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace media::win::chrome_inspect {

// Performs one panel message and returns its reply. The first call starts the idle watchdog. Blocks
// for as long as the agent takes to answer, where the message's kind asks it something. Throws
// nlohmann::json::type_error for an argument of a wrong type. Threads: one call at a time, of
// whichever of the two threads for panel messages answers (panel_work.h).
nlohmann::json handleMessage(const nlohmann::json& request);

// The not-ok reply to a message that cannot be answered: an ack, or a "hostProviderRpc" reply.
nlohmann::json failureReply(const nlohmann::json& request, std::string_view error);

// Performs one panel message and sends its reply: exactly one, whatever is thrown, but for a kind
// that replies later on a thread of its own.
void answerPanelMessage(const nlohmann::json& request);

}  // namespace media::win::chrome_inspect
