// A stream of events, cut into pieces anywhere, against the rule written out naively; what is an
// event of a feed in it can be sent.

#include "agent/event_splitter.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "agent/event_feed.h"
#include "fuzz_input.h"

namespace media::win::chrome_inspect {
namespace {

std::vector<std::string> cutNaively(std::string text) {
  std::vector<std::string> parts;
  for (std::size_t end = text.find("\n\n"); end != text.npos; end = text.find("\n\n")) {
    parts.push_back(text.substr(0, end));
    text.erase(0, end + 2);
  }
  parts.push_back(text);
  return parts;
}

}  // namespace

void fuzz(std::string_view input) {
  Pieces pieces(input);
  const auto wanted = cutNaively(std::string(pieces.rest()));
  EventSplitter splitter;
  std::vector<std::string> parts;
  while (!pieces.rest().empty()) {
    splitter.feed(pieces.next(), [&parts](std::string_view part) { parts.emplace_back(part); });
  }
  parts.emplace_back(splitter.pending());
  require(parts == wanted);
  for (const std::string& part : parts) {
    JsonDocument event;
    if (!readFeedEvent(part, event)) continue;
    require(event.root()["args"].isArray() && !event.root()["method"].text().empty());
    (void)nlohmann::json::parse(event.root().compactText());
  }
}

}  // namespace media::win::chrome_inspect
