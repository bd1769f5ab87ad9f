#include "toolserver/access.h"

#include <string>

#include "common/product_names.h"
#include "text/ascii.h"

namespace media::win::chrome_inspect {

bool isHostAllowed(std::string_view host, std::int32_t port) {
  if (port < 1) return false;
  const std::string folded = foldCase(host);
  const std::string suffix = ":" + std::to_string(port);
  return folded == "127.0.0.1" + suffix || folded == "localhost" + suffix;
}

bool isTokenRight(std::string_view given, std::string_view token) {
  if (token.empty() || given.size() != token.size()) return false;
  // Volatile: the loop must not end early, whatever the compiler makes of it.
  volatile unsigned char difference = 0;
  for (std::size_t i = 0; i < token.size(); ++i) {
    difference = static_cast<unsigned char>(
        difference | (static_cast<unsigned char>(given[i]) ^ static_cast<unsigned char>(token[i])));
  }
  return difference == 0;
}

bool isRequestAllowed(std::string_view method, std::string_view path, std::string_view origin,
                      std::string_view secFetchDest) {
  if (!origin.empty()) return origin == extensionOrigin;
  if (path.starts_with("/api/agent-tools")) return true;
  // Image and media elements of the extension's pages fetch without an origin.
  return method == "GET" && path == "/api/local-file" &&
         (secFetchDest == "image" || secFetchDest == "media");
}

Verdict judgeRequest(const HttpRequest& request, std::int32_t port, std::string_view token) {
  if (!isHostAllowed(request.host, port)) return Verdict::badRequest;
  if (request.method == "OPTIONS") {
    return request.origin == extensionOrigin ? Verdict::preflight : Verdict::forbidden;
  }
  if (!isTokenRight(request.session, token)) return Verdict::unauthorized;
  const bool allowed =
      isRequestAllowed(request.method, request.path, request.origin, request.secFetchDest);
  return allowed ? Verdict::pass : Verdict::forbidden;
}

}  // namespace media::win::chrome_inspect
