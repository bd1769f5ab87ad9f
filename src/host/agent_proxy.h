#pragma once

#include <nlohmann/json_fwd.hpp>

// What the panel asks for and the agent answers over its REST interface. Each function makes sure
// that there is an agent and blocks until it has answered; those that need none return at once.
// They throw nlohmann::json::type_error for arguments of a wrong type. Called by the dispatcher.
namespace media::win::chrome_inspect {

// Performs a "providerRpc" message and returns its "hostProviderRpc" reply.
nlohmann::json answerProviderRpc(const nlohmann::json& request);

// Posts what a message asks for to the agent and returns the "ack", with the agent's "ok" or the
// best error text: that it opens the message's paths, or its settings, or what the user answered to
// a consent question.
nlohmann::json answerOpenPathsByAgent(const nlohmann::json& request, bool fullscreen);
nlohmann::json answerSettings(const nlohmann::json& request);
nlohmann::json answerConsentReply(const nlohmann::json& request);

}  // namespace media::win::chrome_inspect
