#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

// Forwards the chat events that the agent publishes to the panel. One pump runs per agent, on a
// thread of its own, and ends with the agent's stream. Threads: any.
namespace media::win::chrome_inspect {

// Starts the pump for the agent on `port` unless it runs already. `fresh`: that agent was started
// just now, so a pump that still runs belongs to one that is gone.
void startChatEvents(std::uint16_t port, bool fresh);

// Whose events are wanted ("" for all), and after which one; a pump that runs starts anew.
void pointChatEvents(const std::string& sender, std::uint64_t after);

// The sender last pointed at; empty when there was none.
std::string chatEventsSender();

// Ends the pump. It forwards nothing more, and none runs until the next start.
void stopChatEvents();

// The events that wait for the panel to ask for them, which are log lines: all others have been
// sent already.
nlohmann::json takePendingChatEvents();

}  // namespace media::win::chrome_inspect
