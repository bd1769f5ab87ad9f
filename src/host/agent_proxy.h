#pragma once

#include <string>

#include "text/json_view.h"

// What the panel asks for and the agent answers over its REST interface. Each function makes sure
// that there is an agent and blocks until it has answered; those that need none return at once.
// They throw nlohmann::json::type_error for arguments of a wrong type. Called by the dispatcher.
namespace media::win::chrome_inspect {

// Performs a "providerRpc" message and returns its "hostProviderRpc" reply.
std::string answerProviderRpc(JsonView request);

// Posts what a message asks for to the agent and returns the "ack", with the agent's "ok" or the
// best error text: that it opens the message's paths, or its settings, or what the user answered to
// a consent question.
std::string answerOpenPathsByAgent(JsonView request, bool fullscreen);
std::string answerSettings(JsonView request);
std::string answerConsentReply(JsonView request);

}  // namespace media::win::chrome_inspect
