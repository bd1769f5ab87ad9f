#include "mcp/json_rpc.h"

#include <exception>
#include <utility>

#include "text/json_text.h"

namespace media::win::chrome_inspect {
namespace {

JsonObjectText beginMessage(std::string& text) {
  JsonObjectText message(text);
  message.text("jsonrpc", "2.0");
  return message;
}

}  // namespace

std::string rpcResult(std::string_view id, std::string_view result) {
  std::string text;
  text.reserve(result.size() + id.size() + sizeof R"({"jsonrpc":"2.0","id":,"result":})");
  JsonObjectText message = beginMessage(text);
  message.member("id") += id;
  message.member("result") += result;
  message.end();
  return text;
}

std::string rpcError(std::string_view id, RpcError code, std::string_view message) {
  std::string text;
  JsonObjectText whole = beginMessage(text);
  if (!id.empty()) whole.member("id") += id;
  JsonObjectText error(whole.member("error"));
  error.member("code") += std::to_string(static_cast<int>(code));
  error.text("message", message);
  error.end();
  whole.end();
  return text;
}

std::string rpcNotification(std::string_view method, std::string_view params) {
  std::string text;
  JsonObjectText message = beginMessage(text);
  message.text("method", method);
  message.member("params") += params;
  message.end();
  return text;
}

bool isRpcId(JsonView value) { return value.isString() || value.isNumber(); }

Replies::Replies(Send send, bool isBatch) : send_(std::move(send)), isBatch_(isBatch) {}

Replies::~Replies() {
  try {
    if (!batch_.empty()) send_(batch_ + "]");
  } catch (const std::exception&) {
    // No memory for it: the client waits for its own time limit.
  }
}

void Replies::add(std::string reply) {
  if (!isBatch_) return send_(std::move(reply));
  const Lock lock(mutex_);
  batch_ += batch_.empty() ? '[' : ',';
  batch_ += reply;
}

}  // namespace media::win::chrome_inspect
