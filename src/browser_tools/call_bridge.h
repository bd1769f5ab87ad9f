#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Has the extension run one browser tool: checks the call {"name", "arguments"}, relays it, waits
// up to 25 s for the answer, screens and compacts what came of the page. Returns the result for the
// agent as JSON text; a failure is {"error", "ok": false, "tool"}. `answer` takes what the
// extension answered, for the caller to free when that delays nobody. Never throws for what the
// agent or the extension sent. Threads: any number at once.
std::string callBrowserTool(const nlohmann::json& request, JsonDocument& answer);

// Whether the agent may call this tool with these arguments.
bool isAllowedTool(std::string_view name, const nlohmann::json& arguments, int depth);

}  // namespace media::win::chrome_inspect
