#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "mcp/json_rpc.h"
#include "text/json_view.h"

// What a server of the Model Context Protocol with tools says to each message of its client, apart
// from how the messages travel and how a tool is called. Written after the revisions
// 2024-11-05, 2025-03-26, 2025-06-18 and 2025-11-25
// (modelcontextprotocol.io/specification/2025-11-25 and so on: "Lifecycle", "Tools", "Utilities").
namespace media::win::chrome_inspect {

// A call of a tool that exists, as the client asked for it.
struct ToolCall {
  std::string id;  // of the request, as JSON
  std::string name;
  nlohmann::json arguments;          // an object
  std::string progressToken;         // as JSON; empty: no progress is asked for
  std::shared_ptr<Replies> replies;  // takes the one reply, or none when the call was cancelled
};

// Severity of what is reported to the client besides replies, from RFC 5424.
enum class LogLevel { debug, info, notice, warning, error, critical, alert, emergency, none };

class Session {
 public:
  // Called by `take`, in the order of the messages; must not block.
  struct Roads {
    Replies::Send send;                                 // one message to the client
    std::function<void(ToolCall call)> call;            // begins a call
    std::function<void(const std::string& id)> cancel;  // gives up the calls of this request
  };

  explicit Session(Roads roads) : roads_(std::move(roads)) {}

  // Takes one line. Whatever it holds, the session goes on. Threads: one at a time.
  void take(std::string_view line);

  // Answers a line that was too long to be looked at.
  void refuseLongLine();

  // Reports `text` to a client that has asked for such reports. Threads: any.
  void log(LogLevel level, std::string_view text) const;

 private:
  struct Request;
  struct Method;
  enum class Handled { reply, wrongParams, invalid, unknown, later };

  void takeBatch(JsonView batch);
  void takeMessage(JsonView message, const std::shared_ptr<Replies>& replies);
  void answer(const Request& request);
  void notice(std::string_view method, JsonView params);
  Handled handle(const Request& request, std::string& text);

  Handled initialize(const Request& request, std::string& text);
  Handled ping(const Request& request, std::string& text);
  Handled listTools(const Request& request, std::string& text);
  Handled callTool(const Request& request, std::string& text);
  Handled setLogLevel(const Request& request, std::string& text);

  const Roads roads_;
  std::string_view revision_;  // empty until the client has initialized the session
  std::atomic<LogLevel> logLevel_ = LogLevel::none;  // from which on is reported

  static const Method methods[];
};

}  // namespace media::win::chrome_inspect
