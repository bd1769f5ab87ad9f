#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

enum class ParseState { needsMore, done, malformed };

// Largest response header, interim responses included, in bytes.
inline constexpr std::size_t maxResponseHeader = 64 * 1024;

// Reads the header of an HTTP/1.1 response (RFC 9112) from pieces of any size. Interim (1xx)
// responses are passed over.
class HttpHeaderReader {
 public:
  // Takes bytes from the front of `bytes`, not past the end of the header. Once it is `done` or
  // `malformed` it takes no more.
  ParseState feed(std::string_view& bytes);

  // With `done` only.
  std::uint32_t status() const { return status_; }
  bool chunked() const { return chunked_; }
  std::optional<std::uint64_t> contentLength() const { return contentLength_; }

 private:
  ParseState takeLine(std::string_view line);
  ParseState endOfHeader();
  bool takeStatusLine(std::string_view line);
  bool takeField(std::string_view line);
  bool takeContentLength(std::string_view value);

  std::string line_;
  std::size_t taken_ = 0;
  ParseState state_ = ParseState::needsMore;
  std::uint32_t status_ = 0;  // 0 before the status line
  bool chunked_ = false;
  std::optional<std::uint64_t> contentLength_;
};

}  // namespace media::win::chrome_inspect
