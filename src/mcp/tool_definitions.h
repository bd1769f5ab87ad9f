#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The result of "tools/list": the tools of the catalogue, with titles, hints about what they do and
// the arguments that docs/protocol.md describes. The same in every revision: a client passes over
// what it does not know. (modelcontextprotocol.io/specification/2025-11-25/server/tools)
std::string toolListResult();

}  // namespace media::win::chrome_inspect
