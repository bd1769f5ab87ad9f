// A request in any bytes, which must be judged alike however they are cut into pieces, and whether
// its body is kept or not. The first bytes of the input say where to cut.

#include "toolserver/http_request.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t cutCount = 8;

// Gives `bytes` in pieces of these sizes, over and over, and then nothing more.
class PiecewiseReceiver {
 public:
  PiecewiseReceiver(std::string_view sizes, std::string_view bytes)
      : sizes_(sizes), bytes_(bytes) {}

  bool operator()(char* buffer, std::size_t capacity, std::size_t& got) {
    if (bytes_.empty()) return false;
    const auto wanted = static_cast<unsigned char>(sizes_[piece_++ % cutCount]) + std::size_t{1};
    got = std::min({wanted, capacity, bytes_.size()});
    bytes_.copy(buffer, got);
    bytes_.remove_prefix(got);
    return true;
  }

 private:
  std::string_view sizes_;
  std::string_view bytes_;
  std::size_t piece_ = 0;
};

void require(bool holds) {
  if (!holds) std::abort();
}

bool read(std::string_view sizes, std::string_view bytes, bool keep, HttpRequest& request) {
  return readHttpRequest(
      PiecewiseReceiver(sizes, bytes), [keep](const HttpRequest&) { return keep; }, request);
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

void check(std::string_view sizes, std::string_view bytes) {
  HttpRequest kept;
  HttpRequest drained;
  HttpRequest atOnce;
  const bool accepted = read(sizes, bytes, true, kept);
  require(read(sizes, bytes, false, drained) == accepted);
  require(drained.body.empty());
  if (bytes.size() <= 4096) {  // then no limit can depend on the pieces
    require(read("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", bytes, true, atOnce) == accepted);
    require(atOnce.body == kept.body || !accepted);
  }
  if (!accepted) return;
  checkAccepted(kept, bytes);
  require(drained.path == kept.path && drained.session == kept.session);
}

}  // namespace
}  // namespace media::win::chrome_inspect

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  if (size < cutCount) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  check(input.substr(0, cutCount), input.substr(cutCount));
  return 0;
}
