#include "platform/posix/http_header_posix.h"

#include <algorithm>
#include <charconv>

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t firstFinalStatus = 200;

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }

char lowered(char byte) {
  return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

bool sameWord(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

bool isTokenByte(char byte) {
  constexpr std::string_view marks = "!#$%&'*+-.^_`|~";
  const char low = lowered(byte);
  return isDigit(byte) || (low >= 'a' && low <= 'z') || marks.find(byte) != marks.npos;
}

bool isValueByte(char byte) {
  const auto code = static_cast<unsigned char>(byte);
  return byte == '\t' || (code >= 0x20 && code != 0x7F);
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

ParseState HttpHeaderReader::feed(std::string_view& bytes) {
  while (state_ == ParseState::needsMore && !bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    const std::size_t count = end == bytes.npos ? bytes.size() : end + 1;
    taken_ += count;
    if (taken_ > maxResponseHeader) return state_ = ParseState::malformed;
    line_.append(bytes.substr(0, std::min(end, count)));
    bytes.remove_prefix(count);
    if (end == bytes.npos) break;
    if (line_.ends_with('\r')) line_.pop_back();
    state_ = takeLine(line_);
    line_.clear();
  }
  return state_;
}

ParseState HttpHeaderReader::takeLine(std::string_view line) {
  if (line.empty() && status_ != 0) return endOfHeader();
  const bool sound = status_ == 0 ? takeStatusLine(line) : takeField(line);
  return sound ? ParseState::needsMore : ParseState::malformed;
}

ParseState HttpHeaderReader::endOfHeader() {
  if (status_ >= firstFinalStatus) return ParseState::done;
  status_ = 0;
  chunked_ = false;
  contentLength_.reset();
  return ParseState::needsMore;
}

// "HTTP/1.1 200 OK"; the reason may be missing.
bool HttpHeaderReader::takeStatusLine(std::string_view line) {
  constexpr std::string_view version = "HTTP/1.";
  constexpr std::size_t codeAt = version.size() + 2;
  constexpr std::size_t codeEnd = codeAt + 3;
  if (!line.starts_with(version) || line.size() < codeEnd || !isDigit(line[version.size()]) ||
      line[codeAt - 1] != ' ' || (line.size() > codeEnd && line[codeEnd] != ' ')) {
    return false;
  }
  const char* end = line.data() + codeEnd;
  const auto [stopped, error] = std::from_chars(line.data() + codeAt, end, status_);
  return error == std::errc() && stopped == end && status_ >= 100;
}

bool HttpHeaderReader::takeField(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == line.npos || colon == 0) return false;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = trimmed(line.substr(colon + 1));
  if (!std::all_of(name.begin(), name.end(), isTokenByte) ||
      !std::all_of(value.begin(), value.end(), isValueByte)) {
    return false;
  }
  if (sameWord(name, "Content-Length")) return takeContentLength(value);
  if (!sameWord(name, "Transfer-Encoding")) return true;
  chunked_ = sameWord(value, "chunked");
  return chunked_;  // we could not decode another one
}

bool HttpHeaderReader::takeContentLength(std::string_view value) {
  std::uint64_t length = 0;
  const char* end = value.data() + value.size();
  const auto [stopped, error] = std::from_chars(value.data(), end, length);
  if (error != std::errc() || stopped != end) return false;
  if (contentLength_ && *contentLength_ != length) return false;
  contentLength_ = length;
  return true;
}

}  // namespace media::win::chrome_inspect
