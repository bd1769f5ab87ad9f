#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "text/json_view.h"

// A call of a browser tool, whoever makes it: what may be called, what is sent, and what the caller
// gets to see of the answer are the same on every road to the extension.
namespace media::win::chrome_inspect {

// Sends a command, to which it adds a "requestId" of its own, to the extension and waits for the
// answer. False when there is none; `error` then says why.
using ExtensionRoad =
    std::function<bool(nlohmann::json command, JsonDocument& reply, std::string& error)>;

struct ToolOutcome {
  std::string text;        // the result as JSON, or in words why there is none
  bool isResult = false;   // which of the two
  bool isFailure = true;   // there is none, or its "ok" is false, or the page is flagged
  bool isFlagged = false;  // the page holds instructions for agents
};

// Checks the call, has the extension run it, screens and compacts what came of the page. `answer`
// takes what the extension answered, for the caller to free when that delays nobody. Never throws
// for what the caller or the extension sent. Threads: as the road.
ToolOutcome callTool(std::string_view tool, const nlohmann::json& arguments,
                     const ExtensionRoad& road, JsonDocument& answer);

// Whether this tool may be called with these arguments.
bool isAllowedTool(std::string_view name, const nlohmann::json& arguments, int depth);

}  // namespace media::win::chrome_inspect
