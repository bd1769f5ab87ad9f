#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

namespace media::win::chrome_inspect {

// The document that lists the browser tools for the agent; always the same.
nlohmann::json agentToolCatalog();

// One entry of it, with parameters that are left open: the descriptions steer the agent, and calls
// are checked when they come.
nlohmann::json makeToolSchema(std::string_view name, std::string_view description);

// Whether the catalogue has a tool of this name.
bool isKnownTool(std::string_view name);

}  // namespace media::win::chrome_inspect
