#pragma once

#include <cstdint>
#include <string_view>

#include "toolserver/http_request.h"

// Who may ask the tool server for what. Pure functions.
namespace media::win::chrome_inspect {

// Whether a "Host" value names this server: 127.0.0.1 or localhost, in any letter case, with its
// port. It keeps out pages that reach us under a name of their own (DNS rebinding).
bool isHostAllowed(std::string_view host, std::int32_t port);

// Whether `given` is `token`, in a time that depends on the length alone. An empty token matches
// nothing.
bool isTokenRight(std::string_view given, std::string_view token);

// Whether a request with this origin may use this path.
bool isRequestAllowed(std::string_view method, std::string_view path, std::string_view origin,
                      std::string_view secFetchDest);

enum class Verdict { pass, badRequest, preflight, unauthorized, forbidden };

// The checks in their order; the first that fails decides.
Verdict judgeRequest(const HttpRequest& request, std::int32_t port, std::string_view token);

}  // namespace media::win::chrome_inspect
