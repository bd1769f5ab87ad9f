#include "agent/event_feed.h"

#include <algorithm>
#include <string>

#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

std::string feedData(std::string_view block) {
  constexpr std::string_view field = "data:";
  std::string data;
  while (!block.empty()) {
    std::string_view line = block.substr(0, block.find('\n'));
    block.remove_prefix(std::min(line.size() + 1, block.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (!line.starts_with(field)) continue;
    line.remove_prefix(field.size());
    if (line.starts_with(' ')) line.remove_prefix(1);
    data += line;
  }
  return data;
}

}  // namespace

bool readFeedEvent(std::string_view block, JsonDocument& event) {
  const std::string data = feedData(block);
  std::string ignored;
  return !data.empty() && readJson(data, event, ignored) == ParseOutcome::ok &&
         !event.root()["method"].text().empty() && event.root()["args"].isArray();
}

}  // namespace media::win::chrome_inspect
