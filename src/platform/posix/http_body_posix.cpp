#include "platform/posix/http_body_posix.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t noContentStatus = 204;
constexpr std::uint32_t notModifiedStatus = 304;
constexpr std::size_t maxLine = 4096;  // of a chunk's size or a trailer field
constexpr std::uint64_t endless = std::numeric_limits<std::uint64_t>::max();

}  // namespace

HttpBodyDecoder::HttpBodyDecoder(Framing framing, std::uint64_t length)
    : framing_(framing),
      awaited_(framing == Framing::chunked ? Awaited::sizeLine : Awaited::data),
      left_(length),
      state_(framing == Framing::length && length == 0 ? ParseState::done : ParseState::needsMore) {
}

HttpBodyDecoder HttpBodyDecoder::forResponse(const HttpHeaderReader& header, bool headOnly) {
  if (headOnly || header.status() == noContentStatus || header.status() == notModifiedStatus) {
    return HttpBodyDecoder(Framing::length, 0);
  }
  if (header.chunked()) return HttpBodyDecoder(Framing::chunked, 0);
  if (header.contentLength()) return HttpBodyDecoder(Framing::length, *header.contentLength());
  return HttpBodyDecoder(Framing::untilClose, endless);
}

ParseState HttpBodyDecoder::feed(std::string_view bytes, std::string& body) {
  if (state_ != ParseState::needsMore) return state_;
  if (framing_ == Framing::chunked) return state_ = takeChunked(bytes, body);
  takeData(bytes, body);
  if (left_ == 0) state_ = ParseState::done;
  return state_;
}

ParseState HttpBodyDecoder::endOfConnection() const {
  if (state_ == ParseState::needsMore && framing_ != Framing::untilClose) {
    return ParseState::malformed;
  }
  return state_ == ParseState::malformed ? state_ : ParseState::done;
}

void HttpBodyDecoder::takeData(std::string_view& bytes, std::string& body) {
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(left_, bytes.size()));
  body.append(bytes.substr(0, count));
  bytes.remove_prefix(count);
  if (left_ != endless) left_ -= count;
}

// True when a whole line has come; `line` is then valid until the next call.
bool HttpBodyDecoder::takeLine(std::string_view& bytes, std::string_view& line) {
  const std::size_t end = bytes.find('\n');
  const std::size_t count = std::min(end, bytes.size());
  line_.append(bytes.substr(0, count));
  bytes.remove_prefix(end == bytes.npos ? count : count + 1);
  if (end == std::string_view::npos) return false;
  if (line_.ends_with('\r')) line_.pop_back();
  line = line_;
  return true;
}

ParseState HttpBodyDecoder::takeChunked(std::string_view bytes, std::string& body) {
  while (!bytes.empty()) {
    if (awaited_ == Awaited::data) {
      takeData(bytes, body);
      if (left_ == 0) awaited_ = Awaited::dataEnd;
      continue;
    }
    std::string_view line;
    const bool whole = takeLine(bytes, line);
    if (line_.size() > maxLine) return ParseState::malformed;
    if (!whole) break;
    if (awaited_ == Awaited::trailerLine && line.empty()) return ParseState::done;
    if (!endLine(line)) return ParseState::malformed;
    line_.clear();
  }
  return ParseState::needsMore;
}

bool HttpBodyDecoder::endLine(std::string_view line) {
  if (awaited_ == Awaited::sizeLine) return startChunk(line);
  if (awaited_ == Awaited::trailerLine) return true;
  awaited_ = Awaited::sizeLine;
  return line.empty();
}

// "1a" or "1a;extension"; 0 is the last chunk.
bool HttpBodyDecoder::startChunk(std::string_view line) {
  const std::string_view digits = line.substr(0, line.find_first_of("; \t"));
  constexpr int hexadecimal = 16;
  const char* end = digits.data() + digits.size();
  const auto [stopped, error] = std::from_chars(digits.data(), end, left_, hexadecimal);
  if (error != std::errc() || stopped != end || left_ == endless) return false;
  awaited_ = left_ == 0 ? Awaited::trailerLine : Awaited::data;
  return true;
}

}  // namespace media::win::chrome_inspect
