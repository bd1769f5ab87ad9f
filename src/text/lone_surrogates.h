#pragma once

#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// Appends to `repaired` the JSON text `text` with the escape of each lone surrogate half, such as
// "\ud83d" without its other half, replaced by that of U+FFFD. True when there was one. Linear.
bool repairLoneSurrogates(std::string_view text, std::string& repaired);

}  // namespace media::win::chrome_inspect
