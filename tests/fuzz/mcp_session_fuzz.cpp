// A client's bytes, cut into pieces anywhere: whatever they are, what comes out is JSON-RPC, one
// message a line, with an id only where a request had one, and every call is of a tool that exists.

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "browser_tools/tool_catalog.h"
#include "fuzz_input.h"
#include "mcp/line_reader.h"
#include "mcp/session.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::size_t longestLine = 4096;

std::vector<std::string> linesNaively(std::string text) {
  std::vector<std::string> lines;
  for (std::size_t end = text.find('\n'); end != text.npos; end = text.find('\n')) {
    lines.push_back(text.substr(0, end));
    if (lines.back().ends_with('\r')) lines.back().pop_back();
    text.erase(0, end + 1);
  }
  return lines;
}

void checkReply(const json& reply) {
  require(reply.at("jsonrpc") == "2.0");
  require(reply.contains("result") != reply.contains("error"));
  if (reply.contains("result")) require(reply.contains("id"));
  if (reply.contains("id")) require(reply.at("id").is_string() || reply.at("id").is_number());
}

void checkMessage(const std::string& message) {
  require(message.find('\n') == std::string::npos);
  const json whole = json::parse(message);
  if (!whole.is_array()) return checkReply(whole);
  for (const json& reply : whole) checkReply(reply);
}

}  // namespace

void fuzz(std::string_view input) {
  Pieces pieces(input);
  const std::vector<std::string> wanted = linesNaively(std::string(pieces.rest()));
  std::vector<ToolCall> calls;
  Session session({checkMessage,
                   [&calls](ToolCall call) {
                     require(isKnownTool(call.name) && call.arguments.is_object());
                     call.replies->add(rpcResult(call.id, "{}"));
                     calls.push_back(std::move(call));
                   },
                   [](const std::string& id) { (void)json::parse(id); }});
  LineReader reader(longestLine);
  std::size_t count = 0;
  while (!pieces.rest().empty()) {
    reader.feed(pieces.next(), [&](std::optional<std::string_view> line) {
      if (count == wanted.size()) return require(!line);  // too long, and without an end
      require(line ? *line == wanted[count] : wanted[count].size() > longestLine);
      ++count;
      line ? session.take(*line) : session.refuseLongLine();
    });
  }
  require(count == wanted.size());
}

}  // namespace media::win::chrome_inspect
