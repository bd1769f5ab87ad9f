#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/posix/http_header_posix.h"

namespace media::win::chrome_inspect {

// Takes the framing off an HTTP/1.1 response body (RFC 9112, section 6) from pieces of any size.
class HttpBodyDecoder {
 public:
  HttpBodyDecoder() : HttpBodyDecoder(Framing::length, 0) {}

  // The decoder that a response with this header needs. `headOnly` is an answer to HEAD.
  static HttpBodyDecoder forResponse(const HttpHeaderReader& header, bool headOnly);

  // Appends the body bytes in `bytes` to `body`. What follows the end of the body is ignored.
  ParseState feed(std::string_view bytes, std::string& body);

  // The connection has ended: `done` when the body may end so, else `malformed`.
  ParseState endOfConnection() const;

 private:
  enum class Framing { length, untilClose, chunked };
  enum class Awaited { data, sizeLine, dataEnd, trailerLine };

  HttpBodyDecoder(Framing framing, std::uint64_t length);

  void takeData(std::string_view& bytes, std::string& body);
  bool takeLine(std::string_view& bytes, std::string_view& line);
  ParseState takeChunked(std::string_view bytes, std::string& body);
  bool endLine(std::string_view line);
  bool startChunk(std::string_view line);

  Framing framing_;
  Awaited awaited_;
  std::uint64_t left_;  // of the body, or of the chunk
  std::string line_;
  ParseState state_;
};

}  // namespace media::win::chrome_inspect
