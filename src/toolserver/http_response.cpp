#include "toolserver/http_response.h"

#include <utility>

#include "common/product_names.h"

namespace media::win::chrome_inspect {
namespace {

// The last header lines and the end of the block.
std::string lengthAndEnd(std::size_t bodySize) {
  return "Content-Length: " + std::to_string(bodySize) + "\r\nConnection: close\r\n\r\n";
}

}  // namespace

std::string corsHeaders(std::string_view origin) {
  if (origin != extensionOrigin) return {};
  std::string lines = "Access-Control-Allow-Origin: ";
  lines += extensionOrigin;
  lines +=
      "\r\nVary: Origin\r\n"
      "Access-Control-Allow-Methods: GET, POST, OPTIONS\r\n"
      "Access-Control-Allow-Headers: Content-Type, X-Morva-Session\r\n";
  return lines;
}

HttpResponse jsonResponse(int status, std::string_view reason, std::string body,
                          std::string_view origin) {
  std::string head = "HTTP/1.1 " + std::to_string(status) + " ";
  head.append(reason).append("\r\nContent-Type: application/json\r\n");
  head += corsHeaders(origin) + lengthAndEnd(body.size());
  return {std::move(head), std::move(body), {}};
}

HttpResponse fileResponse(std::string_view contentType, std::string body, std::string_view origin) {
  std::string head = "HTTP/1.1 200 OK\r\nContent-Type: ";
  head.append(contentType).append("\r\n");
  head += corsHeaders(origin) + "Cache-Control: no-store\r\n" + lengthAndEnd(body.size());
  return {std::move(head), std::move(body), {}};
}

}  // namespace media::win::chrome_inspect
