#include "toolserver/http_request.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t readSize = 4096;
constexpr std::string_view lineEnd = "\r\n";
constexpr std::string_view headEnd = "\r\n\r\n";
constexpr std::string_view uploadPath = "/api/context-file";

// Takes the next line off the front of `block`, without its end.
std::string_view takeLine(std::string_view& block) {
  const std::size_t end = block.find(lineEnd);
  const std::string_view line = block.substr(0, end);
  block.remove_prefix(end == std::string_view::npos ? block.size() : end + lineEnd.size());
  return line;
}

std::string_view skipBlanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return text;
}

// Whether `line` is the header `lowerName`, with no blank before its colon.
bool isHeader(std::string_view line, std::string_view lowerName) {
  return line.size() > lowerName.size() && line[lowerName.size()] == ':' &&
         equalsFolded(line.substr(0, lowerName.size()), lowerName);
}

// What has been received so far, and how far it has been searched for the end of the header block.
struct Buffer {
  std::string bytes;
  std::size_t searched = 0;

  bool findHeadEnd(std::size_t& at) {
    at = bytes.find(headEnd, searched);
    if (at != std::string::npos) return true;
    searched = bytes.size() - std::min(bytes.size(), headEnd.size() - 1);
    return false;
  }
};

// Reads until the header block is whole; `at` is where it ends.
bool readHead(const ReceiveBytes& receive, Buffer& buffer, std::size_t& at) {
  std::array<char, readSize> piece{};
  while (!buffer.findHeadEnd(at)) {
    std::size_t got = 0;
    if (!receive(piece.data(), piece.size(), got)) return false;
    buffer.bytes.append(piece.data(), got);
    if (buffer.bytes.size() > maxHeaderBytes) return false;
  }
  return true;
}

bool isAcceptableTarget(std::string_view target) {
  return target.starts_with('/') && !target.starts_with("//") &&
         target.find("://") == std::string_view::npos;
}

bool readRequestLine(std::string_view line, HttpRequest& request) {
  const std::size_t first = line.find(' ');
  if (first == std::string_view::npos) return false;
  const std::size_t second = line.find(' ', first + 1);
  if (second == std::string_view::npos) return false;
  const std::string_view method = line.substr(0, first);
  if (method != "GET" && method != "POST" && method != "OPTIONS") return false;
  if (line.substr(second + 1) != "HTTP/1.1") return false;
  const std::string_view target = line.substr(first + 1, second - first - 1);
  if (!isAcceptableTarget(target)) return false;
  const std::size_t mark = std::min(target.find('?'), target.size());
  request.method = method;
  request.path = target.substr(0, mark);
  request.query = target.substr(std::min(mark + 1, target.size()));
  return true;
}

void readHeaders(std::string_view head, HttpRequest& request) {
  request.origin = headerValue(head, "origin");
  request.session = headerValue(head, "x-morva-session");
  request.host = headerValue(head, "host");
  request.secFetchDest = foldCase(headerValue(head, "sec-fetch-dest"));
}

// How much of a body there will be, and how much there may ever be.
struct BodySize {
  std::size_t announced = 0;
  std::size_t limit = 0;
};

// Reads the rest of a body of which `arrived` bytes are there already and hands on each piece,
// which may reach beyond the body's end, to `take`. What comes behind the body counts for the
// limit.
template <class Take>
bool readBody(const ReceiveBytes& receive, std::size_t arrived, BodySize size, const Take& take) {
  std::array<char, readSize> piece{};
  for (std::size_t done = arrived, got = 0; done < size.announced; done += got) {
    if (!receive(piece.data(), piece.size(), got) || done + got > size.limit) return false;
    take(std::string_view(piece.data(), std::min(got, size.announced - done)));
  }
  return true;
}

bool keepBody(const ReceiveBytes& receive, std::string_view arrived, BodySize size,
              std::string& body) {
  body.reserve(size.announced);
  body = arrived.substr(0, size.announced);
  return readBody(receive, arrived.size(), size, [&body](std::string_view part) { body += part; });
}

bool drainBody(const ReceiveBytes& receive, std::size_t arrived, BodySize size) {
  return readBody(receive, arrived, size, [](std::string_view) {});
}

// One header line's part in the announced length. False when the block must be refused.
bool readLengthLine(std::string_view line, std::int32_t& value, int& count) {
  if (line.find('\0') != std::string_view::npos) return false;
  if (line.starts_with(' ') || line.starts_with('\t')) return false;
  if (isHeader(line, "transfer-encoding")) return false;
  constexpr std::string_view name = "content-length";
  if (!isHeader(line, name)) return true;
  const std::string_view digits = skipBlanks(line.substr(name.size() + 1));
  if (digits.empty() || digits.front() == '-') return false;
  const char* const end = digits.data() + digits.size();
  const auto parsed = std::from_chars(digits.data(), end, value);  // knows no plus sign
  ++count;
  return parsed.ec == std::errc() && parsed.ptr == end;
}

}  // namespace

bool readHttpRequest(const ReceiveBytes& receive,
                     const std::function<bool(const HttpRequest&)>& wantsBody,
                     HttpRequest& request) {
  Buffer buffer;
  std::size_t headSize = 0;
  if (!readHead(receive, buffer, headSize)) return false;
  const std::string_view head = std::string_view(buffer.bytes).substr(0, headSize);
  if (head.find('\0') != std::string_view::npos) return false;
  readHeaders(head, request);
  if (!readRequestLine(head.substr(0, head.find(lineEnd)), request)) return false;
  bool ok = false;
  const std::int32_t announced = contentLengthOf(head, ok);
  if (!ok) return false;
  const BodySize size = {static_cast<std::size_t>(announced),
                         request.path == uploadPath ? maxUploadBodyBytes : maxBodyBytes};
  if (size.announced > size.limit) return false;
  const std::string_view arrived = std::string_view(buffer.bytes).substr(headSize + headEnd.size());
  if (!wantsBody(request)) return drainBody(receive, arrived.size(), size);
  return keepBody(receive, arrived, size, request.body);
}

std::string_view headerValue(std::string_view headBlock, std::string_view lowerName) {
  while (!headBlock.empty()) {
    const std::string_view line = takeLine(headBlock);
    if (isHeader(line, lowerName)) return skipBlanks(line.substr(lowerName.size() + 1));
  }
  return {};
}

std::int32_t contentLengthOf(std::string_view headBlock, bool& ok) {
  std::int32_t value = 0;
  int count = 0;
  ok = true;
  while (ok && !headBlock.empty()) ok = readLengthLine(takeLine(headBlock), value, count);
  ok = ok && count < 2;
  return ok ? value : -1;
}

}  // namespace media::win::chrome_inspect
