#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "chat/turn_events.h"

namespace media::win::chrome_inspect {

// The args of the event that shows a piece of a text; `index` counts the pieces before it.
using PieceArgs = std::function<nlohmann::json(std::string_view piece, std::uint32_t index)>;

// Sends a text, which is UTF-8, as events of a turn: in one when that fits into a frame that the
// browser takes, else in pieces of which each fits. Returns how many it were. May block on standard
// output.
std::uint32_t sendText(TurnEvents& events, std::string_view method, std::string_view text,
                       const PieceArgs& argsOf);

}  // namespace media::win::chrome_inspect
