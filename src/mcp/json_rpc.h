#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/locks.h"
#include "text/json_view.h"

// JSON-RPC 2.0 (jsonrpc.org/specification) as the Model Context Protocol uses it: messages as text,
// without a line end.
namespace media::win::chrome_inspect {

enum class RpcError {
  parse = -32700,
  invalidRequest = -32600,
  methodNotFound = -32601,
  invalidParams = -32602,
  internal = -32603,
};

// `id` and `result` are JSON. An error whose request is not known has no id: MCP knows no null one
// (modelcontextprotocol.io/specification/2025-11-25/basic, "Error Responses").
std::string rpcResult(std::string_view id, std::string_view result);
std::string rpcError(std::string_view id, RpcError code, std::string_view message);
std::string rpcNotification(std::string_view method, std::string_view params);

// Whether a value may be the id of a request, or a progress token: a text or a number.
bool isRpcId(JsonView value);

// Takes the replies to one message. That to a single request goes out at once; those to a batch go
// out together, as a list, when the last that may add one has let go of the object. A batch without
// any reply is not answered. Threads: any.
class Replies {
 public:
  using Send = std::function<void(std::string message)>;

  Replies(Send send, bool isBatch);
  ~Replies();
  Replies(const Replies&) = delete;
  Replies& operator=(const Replies&) = delete;

  void add(std::string reply);

 private:
  const Send send_;
  const bool isBatch_;
  Mutex mutex_;
  std::string batch_ MORVA_GUARDED_BY(mutex_);
};

}  // namespace media::win::chrome_inspect
