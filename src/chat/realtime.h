#pragma once

#include <nlohmann/json_fwd.hpp>

// A voice conversation that the agent runs. Called by the dispatcher; the session's events are
// forwarded to the panel by a thread of its own.
namespace media::win::chrome_inspect {

// Has the agent start a session; whatever fails is told to the panel as "realtimeError" and
// "realtimeDone". A session that ran before is no longer forwarded.
void startRealtime(const nlohmann::json& request);

// Passes the state of the push-to-talk key on to the agent, if one is known.
void pushToTalk(const nlohmann::json& request);

// Ends the session: the agent is told, if one is known, and the panel gets "realtimeDone".
void stopRealtime();

// Ends the forwarding without a word.
void stopRealtimeEvents();

}  // namespace media::win::chrome_inspect
