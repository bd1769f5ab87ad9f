#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "text/json_view.h"

// What is common to all messages between the extension and the host. Threads: any.
namespace media::win::chrome_inspect {

// A message of the side panel: an object whose "source" is "morva-chat".
bool isPanelMessage(JsonView message);
// The extension's answer to a request of the host: an object with "ok" and "requestId".
bool isRelayReply(JsonView message);

// Replies are the text of a JSON object, without the "source" and the "chromeRequestId" of the
// message: those are added where they are sent.

// {"kind":"ack","ok":true}, or not ok with an error text.
std::string ackReply();
std::string ackError(std::string_view error);

// The answer to a "providerRpc" message: its "data", a JSON text, or its "error". The request's
// "rpcId" and "id" are echoed.
std::string providerRpcReply(JsonView request, std::string_view data);
std::string providerRpcError(JsonView request, std::string_view error);

// Sends the one reply that every panel message gets, at once or, with `held`, as one of many
// (channel/framing.h). One that is too large for the browser goes out as a not-ok reply of the same
// kind that says so.
enum class Sending { now, held };
void sendReply(JsonView request, std::string_view reply, Sending sending = Sending::now);

// Sends the panel the state of the agent, for example "connected". May block on standard output.
void sendHostStatus(std::string_view agentText);

// The answer to a client of the inspect pipe that could not be served. `requestId` empty:
// "unknown".
nlohmann::json pipeErrorReply(std::string_view requestId, std::string_view code,
                              std::string_view message);

}  // namespace media::win::chrome_inspect
