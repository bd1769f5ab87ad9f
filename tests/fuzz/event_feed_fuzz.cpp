// A feed of any bytes, cut anywhere: what comes out is events that can be sent, and the same ones
// however the bytes are cut.

#include "agent/event_feed.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "agent/event_splitter.h"

namespace {

std::vector<std::string> eventsOf(std::string_view bytes, std::size_t piece) {
  using namespace media::win::chrome_inspect;
  std::vector<std::string> events;
  const auto take = [&events](std::string_view block) {
    nlohmann::json event;
    if (!readFeedEvent(block, event)) return;
    if (!event.at("args").is_array() || event.at("method").get<std::string>().empty()) std::abort();
    events.push_back(event.dump());
  };
  EventSplitter splitter;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    splitter.feed(bytes.substr(at, piece), take);
  }
  take(splitter.pending());
  return events;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  if (eventsOf(bytes, data[0] + std::size_t{1}) != eventsOf(bytes, size)) std::abort();
  return 0;
}
