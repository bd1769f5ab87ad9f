#pragma once

#include <string_view>
#include <vector>

namespace media::win::chrome_inspect {

// A long text in pieces that each fit, however much escaping adds, into a frame that Chrome takes;
// in one piece when it fits anyway or no browser limits the frames. At least one piece.
std::vector<std::string_view> piecesForBrowser(std::string_view text);

}  // namespace media::win::chrome_inspect
