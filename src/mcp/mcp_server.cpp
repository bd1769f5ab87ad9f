#include "mcp/mcp_server.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "browser_tools/tool_call.h"
#include "common/detached.h"
#include "common/product_names.h"
#include "mcp/call_queue.h"
#include "mcp/json_rpc.h"
#include "mcp/line_output.h"
#include "mcp/line_reader.h"
#include "mcp/pipe_road.h"
#include "mcp/session.h"
#include "mcp/tool_reply.h"
#include "platform/byte_stream.h"
#include "platform/console.h"
#include "platform/pipe_client.h"
#include "platform/process_control.h"
#include "text/json_view.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t readBytes = 65536;
constexpr std::size_t mostWaitingBytes = 64 * 1024 * 1024;
constexpr std::uint32_t lastLinesMs = 200;
constexpr unsigned exitFailure = 1;

void report(const std::string& text) {
  writeText(standardError(), std::string(programName) + ": " + text + "\n");
}

void endForOverflow() {
  report("the client does not read what it asks for");
  exitProcess(exitFailure);
}

// Everything that the threads of a server share; never destroyed.
struct Server {
  LineOutput output{standardOutput(), mostWaitingBytes, endForOverflow};
  CallQueue calls{[this](const ToolCall& call, const OwnedSignal& givenUp, JsonDocument& answer) {
                    return run(call, givenUp, answer);
                  },
                  [this](std::string line) { output.send(std::move(line)); }};
  Session session{{[this](std::string line) { output.send(std::move(line)); },
                   [this](ToolCall call) { calls.add(std::move(call)); },
                   [this](const std::string& id) { calls.cancel(id); }}};

  std::string run(const ToolCall& call, const OwnedSignal& givenUp, JsonDocument& answer) const {
    const ToolOutcome outcome = callTool(
        call.name, call.arguments,
        [&](nlohmann::json command, JsonDocument& reply, std::string& error) {
          return askByPipe(std::move(command), reply, error, givenUp);
        },
        answer);
    if (outcome.isFlagged) session.log(LogLevel::warning, "a page holds instructions for agents");
    return rpcResult(call.id, toolReply(outcome));
  }
};

}  // namespace

int runMcpServer() {
  takeStandardStreams();  // before any thread
  setDetachedReporter(report);
  Server& server = leaked<Server>();
  LineReader lines;
  const auto take = [&server](std::optional<std::string_view> line) {
    if (!line) return server.session.refuseLongLine();
    if (!line->empty()) server.session.take(*line);
  };
  std::string buffer(readBytes, '\0');
  std::size_t got = 0;
  while (readSome(standardInput(), buffer.data(), buffer.size(), got) == ReadResult::data) {
    lines.feed(std::string_view(buffer).substr(0, got), take);
  }
  server.output.drain(lastLinesMs);
  return 0;
}

}  // namespace media::win::chrome_inspect
