#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

// The strict reader of HTTP/1.1 requests (RFC 9112) behind the tool server. It refuses what it does
// not need: other methods and versions, transfer codings, folded lines, absolute targets.
namespace media::win::chrome_inspect {

inline constexpr std::size_t maxHeaderBytes = 65536;
inline constexpr std::size_t maxBodyBytes = 1048576;         // 1 MiB
inline constexpr std::size_t maxUploadBodyBytes = 33554432;  // 32 MiB, for "/api/context-file"

struct HttpRequest {
  std::string method;  // "GET", "POST" or "OPTIONS"
  std::string path;    // the target before its first "?"
  std::string query;   // what follows, undecoded
  std::string body;    // exactly as many bytes as announced; empty when it was drained
  std::string origin;
  std::string session;
  std::string host;
  std::string secFetchDest;  // in lower case
};

// One receive: fills at most `capacity` bytes and says how many; false when nothing more comes.
using ReceiveBytes = std::function<bool(char* buffer, std::size_t capacity, std::size_t& got)>;

// Reads one request. Once the header block is known, `wantsBody` decides whether the body is kept;
// one that is not is read to its end all the same and forgotten. False for anything that is not an
// acceptable request. Linear in the bytes received, however they arrive; holds the body once.
bool readHttpRequest(const ReceiveBytes& receive,
                     const std::function<bool(const HttpRequest&)>& wantsBody,
                     HttpRequest& request);

// The value of the first header line whose name is `lowerName` (in lower case), leading
// blanks skipped, or an empty text. `headBlock` is the request line and the header lines.
std::string_view headerValue(std::string_view headBlock, std::string_view lowerName);

// The announced length of the body, 0 when none is. `ok` is false, and the result -1, for a length
// that is malformed or there twice, a transfer coding, a folded line or a NUL byte in the block.
std::int32_t contentLengthOf(std::string_view headBlock, bool& ok);

}  // namespace media::win::chrome_inspect
