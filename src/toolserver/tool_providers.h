#pragma once

#include <cstdint>
#include <string>

namespace media::win::chrome_inspect {

// Where the host's tool server is, for the agent; `url` is empty when it is not running.
struct ToolServerAddress {
  std::string url;
  std::string token;
};

// Registers tools with the agent on `port`: those that the environment variable
// "MORVA_CHROME_HOST_TOOL" names ("id=url"), then `browserTools`. What the agent answers does
// not matter; it is repeated each time an agent is found or started. Blocks as requests to the
// agent do.
void registerHostToolProviders(std::int32_t port, const ToolServerAddress& browserTools);

}  // namespace media::win::chrome_inspect
