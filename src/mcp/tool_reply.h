#pragma once

#include <string>

#include "browser_tools/tool_call.h"

namespace media::win::chrome_inspect {

// The result of "tools/call": the text of the outcome, and a result of the extension also as a
// value. (modelcontextprotocol.io/specification/2025-11-25/server/tools, "Tool Result")
std::string toolReply(const ToolOutcome& outcome);

}  // namespace media::win::chrome_inspect
