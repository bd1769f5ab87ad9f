// A request in any bytes, which must be judged alike however they are cut into pieces, and whether
// its body is kept or not.

#include "toolserver/http_request.h"

#include <string>
#include <string_view>

#include "fuzz_input.h"

namespace media::win::chrome_inspect {
namespace {

bool read(std::string_view input, bool keep, HttpRequest& request) {
  Pieces pieces(input);
  const auto receive = [&pieces](char* buffer, std::size_t capacity, std::size_t& got) {
    const std::string_view piece = pieces.next(capacity);
    got = piece.copy(buffer, piece.size());
    return got > 0;
  };
  return readHttpRequest(
      receive, [keep](const HttpRequest&) { return keep; }, request);
}

void checkAccepted(const HttpRequest& request, std::string_view bytes) {
  require(request.method == "GET" || request.method == "POST" || request.method == "OPTIONS");
  require(request.path.starts_with('/') && !request.path.starts_with("//"));
  require(request.path.find('?') == std::string::npos);
  require(request.path.find("://") == std::string::npos);
  require(request.query.find("://") == std::string::npos);
  const std::size_t head = bytes.find("\r\n\r\n");
  require(head != std::string_view::npos);
  require(request.body == bytes.substr(head + 4, request.body.size()));
  bool ok = false;
  const std::int32_t length = contentLengthOf(bytes.substr(0, head), ok);
  require(ok && length >= 0 && request.body.size() == static_cast<std::size_t>(length));
  require(request.host == headerValue(bytes.substr(0, head), "host"));
}

}  // namespace

void fuzz(std::string_view input) {
  const std::string_view bytes = Pieces(input).rest();
  HttpRequest kept;
  HttpRequest drained;
  HttpRequest atOnce;
  const bool accepted = read(input, true, kept);
  require(read(input, false, drained) == accepted);
  require(drained.body.empty());
  if (bytes.size() <= 4096) {  // then no limit can depend on the pieces
    require(read("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF" + std::string(bytes), true, atOnce) ==
            accepted);
    require(atOnce.body == kept.body || !accepted);
  }
  if (!accepted) return;
  checkAccepted(kept, bytes);
  require(drained.path == kept.path && drained.session == kept.session);
}

}  // namespace media::win::chrome_inspect
