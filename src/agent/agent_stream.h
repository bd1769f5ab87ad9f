#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/http_client.h"

namespace media::win::chrome_inspect {

// Called with each piece of a body as it was read; the view is valid only during the call. Pieces
// are cut anywhere, also inside a line or a character.
using ChunkSink = std::function<void(std::string_view)>;

// Drains the body of a response whose header has been received: into `sink` when there is one, else
// appended to `target`. `shouldStop`, when given, is asked before each read. True when the body
// came to its end; false on a failure, or when it was stopped. What the sink throws passes through.
// Blocks as long as the exchange's receive time-out allows for each piece.
bool readAgentBody(HttpExchange& request, std::string& target, const ChunkSink& sink,
                   const std::function<bool()>& shouldStop);

}  // namespace media::win::chrome_inspect
