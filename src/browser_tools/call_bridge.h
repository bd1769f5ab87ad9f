#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Has the extension of this host run one browser tool for the agent: the call {"name", "arguments"}
// (browser_tools/tool_call.h), with up to 25 s for the answer. Returns the result as JSON text; a
// failure is {"error", "ok": false, "tool"}. `answer` takes what the extension answered, for the
// caller to free when that delays nobody. Never throws for what the agent or the extension sent.
// Threads: any number at once.
std::string callBrowserTool(const nlohmann::json& request, JsonDocument& answer);

}  // namespace media::win::chrome_inspect
