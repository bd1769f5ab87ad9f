#pragma once

#include <cstdint>
#include <string>

#include "agent/current_agent.h"

// Forwards the chat events that the agent publishes to the panel. One stream of them is read at a
// time, on a thread of its own. Each function that begins or ends one waits until the event that is
// being written has been: hold no lock. Threads: any.
namespace media::win::chrome_inspect {

// Reads the events of this agent, unless they are read already.
void startChatEvents(const AgentId& agent);

// Whose events are wanted ("" for all), and after which one. A stream that runs begins anew; when
// none does, those of the current agent are read, if there is one.
void pointChatEvents(const std::string& sender, std::uint64_t after);

// The sender last pointed at; empty when there was none. Does not wait.
std::string chatEventsSender();

// Ends the stream. Nothing more is forwarded, and none is read until the next start.
void stopChatEvents();
// The same if it is this agent's.
void stopChatEventsOf(const AgentId& agent);

}  // namespace media::win::chrome_inspect
