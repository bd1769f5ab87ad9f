#include "agent/agent_stream.h"

#include <algorithm>

namespace media::win::chrome_inspect {
namespace {

// The bytes that are available size the buffer, up to this.
constexpr std::size_t maxPiece = 1024 * 1024;

}  // namespace

bool readAgentBody(HttpExchange& request, std::string& target, const ChunkSink& sink,
                   const std::function<bool()>& shouldStop) {
  std::string piece;
  for (;;) {
    if (shouldStop && shouldStop()) return false;
    std::size_t count = 0;
    if (!request.available(count)) return false;
    if (count == 0) return true;
    piece.resize(std::min(count, maxPiece));
    std::size_t got = 0;
    if (!request.read(piece.data(), piece.size(), got)) return false;
    const std::string_view bytes = std::string_view(piece).substr(0, got);
    if (sink) {
      sink(bytes);
    } else {
      target += bytes;
    }
  }
}

}  // namespace media::win::chrome_inspect
