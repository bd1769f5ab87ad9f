#include "agent/event_splitter.h"

#include <stdexcept>

namespace media::win::chrome_inspect {
namespace {

constexpr std::string_view separator = "\n\n";
constexpr std::size_t keptBytes = 4 * 1024 * 1024;

}  // namespace

void EventSplitter::feed(std::string_view chunk,
                         const std::function<void(std::string_view)>& onBlock) {
  pending_ += chunk;
  const std::string_view bytes = pending_;
  std::size_t begin = 0;
  for (std::size_t end = bytes.find(separator, searched_); end != std::string_view::npos;
       end = bytes.find(separator, begin)) {
    onBlock(bytes.substr(begin, end - begin));
    begin = end + separator.size();
  }
  pending_.erase(0, begin);
  if (pending_.capacity() > keptBytes && pending_.size() < keptBytes) pending_.shrink_to_fit();
  // Its last byte may be the first half of a separator.
  searched_ = pending_.empty() ? 0 : pending_.size() - 1;
  if (pending_.size() > maxEventBlock) throw std::length_error("agent event too large");
}

}  // namespace media::win::chrome_inspect
