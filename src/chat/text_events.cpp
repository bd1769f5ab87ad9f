#include "chat/text_events.h"

#include "channel/framing.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

// A byte may take six when escaped; the rest of the frame is left for what stands around the text.
constexpr std::size_t maxPieceBytes = maxBrowserBody / 8;

}  // namespace

std::vector<std::string_view> piecesForBrowser(std::string_view text) {
  if (text.size() <= maxPieceBytes || outboundLimit() > maxBrowserBody) return {text};
  return splitUtf8(text, maxPieceBytes);
}

}  // namespace media::win::chrome_inspect
