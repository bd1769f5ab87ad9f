#include "channel/envelope.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "channel/framing.h"
#include "text/json_parse.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* sourceTag = "morva-chat";

// A token longer than this is not echoed in a reply that is too large already.
constexpr std::size_t maxEchoedToken = 1024;

void copyKey(const json& from, const char* key, json& to) {
  const auto member = from.find(key);
  if (member != from.end()) to[key] = *member;
}

json tooLargeReply(const json& reply, std::size_t size) {
  const auto kind = reply.find("kind");
  json small = {{"source", sourceTag},
                {"kind", kind != reply.end() && kind->is_string() ? *kind : json("ack")},
                {"ok", false},
                {"error", "reply too large for the browser (" + std::to_string(size) + " bytes)"}};
  for (const char* key : {"chromeRequestId", "rpcId", "id"}) {
    const auto member = reply.find(key);
    if (member != reply.end() && dumpJson(*member).size() <= maxEchoedToken) small[key] = *member;
  }
  return small;
}

}  // namespace

bool isPanelMessage(JsonView message) { return message["source"].text() == sourceTag; }

bool isRelayReply(JsonView message) { return message["ok"] && message["requestId"]; }

json stampMessage(json message, const json& request) {
  message["source"] = sourceTag;
  copyKey(request, "chromeRequestId", message);
  return message;
}

json ackReply(const json& request) {
  // Member by member: an initializer list copies every key and value, and this is most replies.
  json reply(json::value_t::object);
  reply["kind"] = "ack";
  reply["ok"] = true;
  return stampMessage(std::move(reply), request);
}

json ackError(const json& request, std::string_view error) {
  return stampMessage({{"kind", "ack"}, {"ok", false}, {"error", foreignText(error)}}, request);
}

json providerRpcReply(const json& request, bool ok, json payload) {
  json reply = {{"kind", "hostProviderRpc"}, {"ok", ok}};
  reply[ok ? "data" : "error"] = std::move(payload);
  copyKey(request, "rpcId", reply);
  copyKey(request, "id", reply);
  return stampMessage(std::move(reply), request);
}

void sendReply(const json& request, json reply) {
  if (!reply.is_object()) reply = json::object();
  if (!reply.contains("source")) reply["source"] = sourceTag;
  if (!reply.contains("chromeRequestId")) copyKey(request, "chromeRequestId", reply);
  std::string text = dumpJson(reply);
  if (text.size() > outboundLimit()) text = dumpJson(tooLargeReply(reply, text.size()));
  (void)writeMessageText(text);  // the browser is gone; the reader will notice
}

void sendHostStatus(std::string_view agentText) {
  const json status = {{"source", sourceTag},
                       {"kind", "hostStatus"},
                       {"nativeHost", "connected"},
                       {"agent", foreignText(agentText)}};
  (void)writeMessage(status);  // the browser is gone; the reader will notice
}

json pipeErrorReply(std::string_view requestId, std::string_view code, std::string_view message) {
  return {{"ok", false},
          {"protocolVersion", 1},
          {"requestId", requestId.empty() ? "unknown" : requestId},
          {"type", "error"},
          {"error", {{"code", code}, {"message", foreignText(message)}}}};
}

}  // namespace media::win::chrome_inspect
