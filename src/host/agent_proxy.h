#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

// What the panel asks for and the agent answers over its REST interface. Each blocks until the
// agent has answered, after making sure that there is one. Called by the dispatcher.
namespace media::win::chrome_inspect {

// Performs a "providerRpc" message and returns its "hostProviderRpc" reply.
nlohmann::json answerProviderRpc(const nlohmann::json& request);

// Performs one of the plain kinds that post to the agent and returns the "ack".
nlohmann::json openPaths(const nlohmann::json& request, bool fullscreen);
nlohmann::json openSettings(const nlohmann::json& request);
nlohmann::json replyConsent(const nlohmann::json& request);

}  // namespace media::win::chrome_inspect
