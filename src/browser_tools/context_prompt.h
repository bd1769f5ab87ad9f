#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The note about the user's browser that the agent adds to its instructions: which window the tools
// act on, which tab is active, which are open. One line, as long as the tabs make it. Threads: any.
std::string browserContextPrompt();

}  // namespace media::win::chrome_inspect
