#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "channel/framing.h"

namespace media::win::chrome_inspect {

// Takes bytes apart into lines, wherever they are cut: what one line can make us keep is limited. A
// line ends with a line feed, before which a carriage return is not part of it
// (modelcontextprotocol.io/specification/2025-11-25/basic/transports, "stdio").
class LineReader {
 public:
  // Longest line that is taken, in bytes, inclusive.
  explicit LineReader(std::size_t longest = maxInboundBody) : longest_(longest) {}

  // Calls `take` for each line that these bytes complete; with nothing for one that is too long, as
  // soon as that is known. The view is valid during the call.
  using Take = std::function<void(std::optional<std::string_view> line)>;
  void feed(std::string_view bytes, const Take& take);

 private:
  void end(std::string_view rest, const Take& take);

  std::size_t longest_;
  std::string begun_;       // of the line that has not ended yet
  bool isSkipped_ = false;  // that line is too long, and has been reported
};

}  // namespace media::win::chrome_inspect
