#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// The longest event block that is taken; a stream that never ends its block must not fill memory.
inline constexpr std::size_t maxEventBlock = 64 * 1024 * 1024;

// Cuts a byte stream into event blocks at each LF LF, however the bytes arrive: every byte is
// searched once. Blocks are handed over without the separator, in order, as views that are valid
// only during the call.
class EventSplitter {
 public:
  // Throws std::length_error when the unfinished block exceeds `maxEventBlock`, and what `onBlock`
  // throws; either way the splitter is done for.
  void feed(std::string_view chunk, const std::function<void(std::string_view)>& onBlock);

  // What has come behind the last separator.
  std::string_view pending() const { return pending_; }
  // The memory that it keeps for that: small once a large block has been handed over.
  std::size_t heldBytes() const { return pending_.capacity(); }

 private:
  std::string pending_;
  std::size_t searched_ = 0;  // before this no separator begins
};

}  // namespace media::win::chrome_inspect
