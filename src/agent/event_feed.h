#pragma once

#include <string_view>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Reads one block of an agent's event feed: its "data:" lines, joined without separator, as an
// object with a "method" that is not empty and an "args" array. False for anything else: such
// blocks are passed over. Lines may end in CR LF. Never throws.
bool readFeedEvent(std::string_view block, JsonDocument& event);

}  // namespace media::win::chrome_inspect
