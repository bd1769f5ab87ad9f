// A stream of events, cut into pieces anywhere, against the rule written out naively. The first
// bytes of the input say where to cut.

#include "agent/event_splitter.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t cutCount = 8;

std::vector<std::string> cutNaively(std::string text) {
  std::vector<std::string> parts;
  for (std::size_t end = text.find("\n\n"); end != text.npos; end = text.find("\n\n")) {
    parts.push_back(text.substr(0, end));
    text.erase(0, end + 2);
  }
  parts.push_back(text);
  return parts;
}

std::vector<std::string> cutInPieces(std::string_view sizes, std::string_view stream) {
  EventSplitter splitter;
  std::vector<std::string> parts;
  for (std::size_t piece = 0; !stream.empty(); ++piece) {
    const auto size = static_cast<unsigned char>(sizes[piece % cutCount]);
    const std::string_view chunk = stream.substr(0, size);
    splitter.feed(chunk, [&parts](std::string_view block) { parts.emplace_back(block); });
    stream.remove_prefix(chunk.size());
    if (size == 0 && piece % cutCount == cutCount - 1) sizes = "\x01\x02\x03\x04\x05\x06\x07\x08";
  }
  parts.emplace_back(splitter.pending());
  return parts;
}

}  // namespace
}  // namespace media::win::chrome_inspect

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  if (size < cutCount) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view stream = input.substr(cutCount);
  if (cutInPieces(input.substr(0, cutCount), stream) != cutNaively(std::string(stream)))
    std::abort();
  return 0;
}
