#pragma once

#include "toolserver/http_request.h"
#include "toolserver/http_response.h"

namespace media::win::chrome_inspect {

// Answers a request that has passed every check. May throw; the connection then answers nothing.
HttpResponse answerRoute(const HttpRequest& request);

}  // namespace media::win::chrome_inspect
