#include "chat/text_events.h"

#include <nlohmann/json.hpp>  // IWYU pragma: keep

#include "channel/event_batch.h"
#include "text/json_parse.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

// Fits however much escaping adds, unless the rest of the event takes nearly a whole frame.
constexpr std::size_t smallBytes = 8192;

// Numbers in the args of a later piece may have more digits than in those of the first.
constexpr std::size_t spareBytes = 16;

std::size_t encodedBytes(char byte) {
  if (byte == '"' || byte == '\\') return 2;
  if (static_cast<unsigned char>(byte) >= 0x20) return 1;
  return byte == '\b' || byte == '\f' || byte == '\n' || byte == '\r' || byte == '\t' ? 2 : 6;
}

// The longest beginning of `text` that takes at most `maxBytes` in JSON and ends between
// characters.
std::string_view cutEncoded(std::string_view text, std::size_t maxBytes) {
  std::size_t end = 0;
  for (std::size_t used = 0; end < text.size(); ++end) {
    used += encodedBytes(text[end]);
    if (used > maxBytes) break;
  }
  return cutUtf8(text, end);
}

constexpr std::size_t allOfIt = std::string_view::npos;

// The bytes that a piece of `text` may take in JSON. All of it where that fits, and also where what
// stands around it leaves so little room that no number of pieces would help.
std::size_t pieceBytes(std::string_view method, std::string_view text, const PieceArgs& argsOf) {
  if (text.size() <= smallBytes) return allOfIt;
  const std::size_t most = maxArgsBytes(method);
  const std::size_t around = dumpJson(argsOf("", 0)).size();
  if (most < around + smallBytes) return allOfIt;
  const bool fits = cutEncoded(text, most - around).size() == text.size();
  return fits ? allOfIt : most - around - spareBytes;
}

}  // namespace

std::uint32_t sendText(TurnEvents& events, std::string_view method, std::string_view text,
                       const PieceArgs& argsOf) {
  const std::size_t maxBytes = pieceBytes(method, text, argsOf);
  std::uint32_t count = 0;
  do {
    const std::string_view piece = maxBytes == allOfIt ? text : cutEncoded(text, maxBytes);
    events.send(method, argsOf(piece, count++));
    text.remove_prefix(piece.size());
  } while (!text.empty());
  return count;
}

}  // namespace media::win::chrome_inspect
