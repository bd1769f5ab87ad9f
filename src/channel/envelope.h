#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string_view>

#include "text/json_view.h"

// What is common to all messages between the extension and the host. Threads: any.
namespace media::win::chrome_inspect {

// A message of the side panel: an object whose "source" is "morva-chat".
bool isPanelMessage(JsonView message);
// The extension's answer to a request of the host: an object with "ok" and "requestId".
bool isRelayReply(JsonView message);

// `message` with our "source" and with the request's "chromeRequestId", if it has one.
nlohmann::json stampMessage(nlohmann::json message, const nlohmann::json& request);

// {"kind":"ack","ok":true}, or not ok with an error text; stamped.
nlohmann::json ackReply(const nlohmann::json& request);
nlohmann::json ackError(const nlohmann::json& request, std::string_view error);

// The stamped answer to a "providerRpc" message: `payload` is its "data" when `ok`, its "error"
// otherwise. The request's "rpcId" and "id" are echoed.
nlohmann::json providerRpcReply(const nlohmann::json& request, bool ok, nlohmann::json payload);

// Sends the one reply that every panel message gets. A reply that is no object is sent as an empty
// one; "source" and "chromeRequestId" are added when missing. One that is too large for the browser
// goes out as a not-ok reply of the same kind that says so.
void sendReply(const nlohmann::json& request, nlohmann::json reply);

// Sends the panel the state of the agent, for example "connected". May block on standard output.
void sendHostStatus(std::string_view agentText);

// The answer to a client of the inspect pipe that could not be served. `requestId` empty:
// "unknown".
nlohmann::json pipeErrorReply(std::string_view requestId, std::string_view code,
                              std::string_view message);

}  // namespace media::win::chrome_inspect
