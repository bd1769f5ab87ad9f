#pragma once

#include <string>
#include <string_view>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// A whole response, in two parts so that a large body is not copied behind its header.
struct HttpResponse {
  std::string head;  // status line, header lines and the blank line
  std::string body;
  JsonDocument source;  // what the body was made of: freeing a large one is left until it is sent
};

// The header lines that let `origin` read the response (Fetch Standard, "CORS protocol"): none
// unless it is, byte for byte, the extension's.
std::string corsHeaders(std::string_view origin);

// A response with a JSON body; `reason` is the words behind the status.
HttpResponse jsonResponse(int status, std::string_view reason, std::string body,
                          std::string_view origin);

// A "200 OK" response with the bytes of a file, which no cache may keep.
HttpResponse fileResponse(std::string_view contentType, std::string body, std::string_view origin);

}  // namespace media::win::chrome_inspect
