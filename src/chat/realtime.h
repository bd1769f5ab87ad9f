#pragma once

#include <nlohmann/json_fwd.hpp>

// A voice conversation that the agent runs. Called by the dispatcher; each function blocks as long
// as its request to the agent takes. The session's events reach the panel from a thread of its own.
namespace media::win::chrome_inspect {

// Has the agent start a session; a failure is reported to the panel by "realtimeError" and
// "realtimeDone". No event of a session that ran before is forwarded any more; when the new one
// fails, its agent is asked to end it.
void startRealtime(const nlohmann::json& request);

// Posts the state of the push-to-talk key to the agent, if one is known. Throws
// nlohmann::json::type_error for members of a wrong type.
void pushToTalk(const nlohmann::json& request);

// Ends the session: asks the agent to, if one is known, and sends "realtimeDone" to the panel.
void stopRealtime();

// Ends the forwarding; nothing is sent to the agent or the panel.
void stopRealtimeEvents();

}  // namespace media::win::chrome_inspect
