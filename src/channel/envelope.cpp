#include "channel/envelope.h"

#include <nlohmann/json.hpp>

#include "channel/framing.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/json_text.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::string_view sourceTag = "morva-chat";

// A token longer than this is not echoed in a reply that is too large already.
constexpr std::size_t maxEchoedToken = 1024;

void echo(JsonObjectText& reply, JsonView from, std::string_view key) {
  if (const JsonView member = from[key]) reply.view(key, member);
}

void echoShort(JsonObjectText& reply, JsonView from, std::string_view key) {
  const JsonView member = from[key];
  if (member && member.compactText().size() <= maxEchoedToken) reply.view(key, member);
}

// One frame with the reply in it; room for its length is in front.
std::string frameOf(JsonView request, std::string_view reply) {
  std::string frame(frameHeadBytes, '\0');
  JsonObjectText stamped(frame);
  echo(stamped, request, "chromeRequestId");
  stamped.members(reply);
  stamped.text("source", sourceTag);
  stamped.end();
  return frame;
}

std::string tooLargeFrame(JsonView request, std::string_view reply, std::size_t size) {
  JsonDocument whole;
  std::string ignored;  // a text of our own
  (void)readJson(reply, whole, ignored);
  const std::string_view kind = lenientText(whole.root(), "kind", "ack");
  std::string frame(frameHeadBytes, '\0');
  JsonObjectText small(frame);
  echoShort(small, request, "chromeRequestId");
  small.text("error", "reply too large for the browser (" + std::to_string(size) + " bytes)");
  echoShort(small, whole.root(), "id");
  small.text("kind", kind);
  small.flag("ok", false);
  echoShort(small, whole.root(), "rpcId");
  small.text("source", sourceTag);
  small.end();
  return frame;
}

std::string rpcReply(JsonView request, bool ok, std::string_view payload) {
  std::string text;
  JsonObjectText reply(text);
  reply.member(ok ? "data" : "error") += payload;
  echo(reply, request, "id");
  reply.text("kind", "hostProviderRpc");
  reply.flag("ok", ok);
  echo(reply, request, "rpcId");
  reply.end();
  return text;
}

}  // namespace

bool isPanelMessage(JsonView message) { return message["source"].text() == sourceTag; }

bool isRelayReply(JsonView message) { return message["ok"] && message["requestId"]; }

std::string ackReply() { return R"({"kind":"ack","ok":true})"; }

std::string ackError(std::string_view error) {
  return dumpJson({{"error", foreignText(error)}, {"kind", "ack"}, {"ok", false}});
}

std::string providerRpcReply(JsonView request, std::string_view data) {
  return rpcReply(request, true, data);
}

std::string providerRpcError(JsonView request, std::string_view error) {
  return rpcReply(request, false, dumpJson(error));
}

void sendReply(JsonView request, std::string_view reply, Sending sending) {
  std::string frame = frameOf(request, reply);
  if (const std::size_t size = frame.size() - frameHeadBytes; size > outboundLimit()) {
    frame = tooLargeFrame(request, reply, size);
  }
  writeFrameHead(frame.data(), frame.size() - frameHeadBytes);
  // The browser may be gone: the reader will notice.
  (void)(sending == Sending::held ? holdFrame(frame) : writeFrames(frame));
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
