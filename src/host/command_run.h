#pragma once

#include <string>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Runs a command of the assistant: by the agent when it can, else by the desktop application when
// that is running. Returns the "hostProviderRpc" reply. Blocks: the agent's time, then up to 30 s.
std::string answerCommandRun(JsonView request);

}  // namespace media::win::chrome_inspect
