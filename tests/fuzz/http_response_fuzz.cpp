// Any bytes as an HTTP response, in two cuts: header and body are read alike for both.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/posix/http_body_posix.h"
#include "platform/posix/http_header_posix.h"

namespace media::win::chrome_inspect {
namespace {

struct Response {
  ParseState header = ParseState::needsMore;
  ParseState bodyState = ParseState::needsMore;
  ParseState atEnd = ParseState::needsMore;
  std::uint32_t status = 0;
  std::string body;
  bool operator==(const Response&) const = default;
};

Response readResponse(std::string_view bytes, std::size_t piece) {
  Response response;
  HttpHeaderReader header;
  std::string rest;
  while (!bytes.empty() && response.header == ParseState::needsMore) {
    std::string_view chunk = bytes.substr(0, piece);
    bytes.remove_prefix(chunk.size());
    response.header = header.feed(chunk);
    rest = chunk;
  }
  if (response.header != ParseState::done) return response;
  response.status = header.status();
  HttpBodyDecoder decoder = HttpBodyDecoder::forResponse(header, false);
  response.bodyState = decoder.feed(rest, response.body);
  while (!bytes.empty() && response.bodyState == ParseState::needsMore) {
    response.bodyState = decoder.feed(bytes.substr(0, piece), response.body);
    bytes.remove_prefix(std::min(piece, bytes.size()));
  }
  response.atEnd = decoder.endOfConnection();
  return response;
}

}  // namespace
}  // namespace media::win::chrome_inspect

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  if (size == 0) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const Response whole = readResponse(bytes, bytes.size() + 1);
  if (!(readResponse(bytes, data[0] + std::size_t{1}) == whole)) std::abort();
  if (!(readResponse(bytes, 1) == whole)) std::abort();
  return 0;
}
