#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

// Forwards the chat events that the agent publishes to the panel. One stream of them is read at a
// time, on a thread of its own. Each function that begins or ends one waits until the event that is
// being written has been: hold no lock. Threads: any.
namespace media::win::chrome_inspect {

// Reads the events of the agent on `port`, unless they are read already. `fresh`: that agent was
// started just now, so a stream that still runs belongs to one that is gone.
void startChatEvents(std::uint16_t port, bool fresh);

// Whose events are wanted ("" for all), and after which one; a stream that runs begins anew.
void pointChatEvents(const std::string& sender, std::uint64_t after);

// The sender last pointed at; empty when there was none. Does not wait.
std::string chatEventsSender();

// Ends the stream. Nothing more is forwarded, and none is read until the next start.
void stopChatEvents();

}  // namespace media::win::chrome_inspect
