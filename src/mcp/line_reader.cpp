#include "mcp/line_reader.h"

#include <new>

namespace media::win::chrome_inspect {
namespace {

// False when there is no memory for it.
bool append(std::string& line, std::string_view part) {
  try {
    line += part;
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

void LineReader::feed(std::string_view bytes, const Take& take) {
  for (std::size_t at = bytes.find('\n'); at != std::string_view::npos; at = bytes.find('\n')) {
    end(bytes.substr(0, at), take);
    bytes.remove_prefix(at + 1);
  }
  if (isSkipped_) return;
  // One byte more may be the carriage return before a line feed.
  if (begun_.size() + bytes.size() <= longest_ + 1 && append(begun_, bytes)) return;
  isSkipped_ = true;
  begun_ = std::string();
  take(std::nullopt);
}

// The line ends with `rest`.
void LineReader::end(std::string_view rest, const Take& take) {
  if (isSkipped_) {
    isSkipped_ = false;
    return;
  }
  std::string whole;
  std::string_view line = rest;
  if (!begun_.empty()) {
    whole.swap(begun_);
    if (!append(whole, rest)) return take(std::nullopt);
    line = whole;
  }
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (line.size() > longest_) return take(std::nullopt);
  take(line);
}

}  // namespace media::win::chrome_inspect
