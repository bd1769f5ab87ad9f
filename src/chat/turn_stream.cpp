#include "chat/turn_stream.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "chat/agent_event.h"
#include "chat/text_events.h"
#include "text/json_parse.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// The data of a block: the rest of its "data:" lines, joined with LF. Other fields do not steer the
// translation.
std::string dataOf(std::string_view block) {
  constexpr std::string_view field = "data:";
  std::string data;
  while (!block.empty()) {
    const std::string_view line = block.substr(0, block.find('\n'));
    block.remove_prefix(std::min(line.size() + 1, block.size()));
    if (!line.starts_with(field)) continue;
    const std::string_view rest = line.substr(field.size());
    if (!data.empty()) data += '\n';
    data += rest.starts_with(' ') ? rest.substr(1) : rest;
  }
  return data;
}

void showError(TurnStream& stream, const json& error) {
  const std::string text =
      error.is_object() ? std::string(readText(error, "message", "agent failed")) : dumpJson(error);
  stream.events->send("appendText", json::array({{{"role", "error"}, {"text", text}}}));
  stream.done = true;
}

void addContent(TurnStream& stream, std::string_view content) {
  if (content.empty()) return;
  if (stream.assistantText.size() + content.size() > maxAssistantText) {
    throw std::length_error("agent answer too large");
  }
  stream.assistantText += content;
  const auto args = [&stream](std::string_view piece, std::uint32_t index) {
    return json::array({{{"runId", stream.events->runId()},
                         {"chatSessionId", stream.chatSessionId},
                         {"seq", stream.seq + 1 + index},
                         {"delta", piece}}});
  };
  stream.seq += sendText(*stream.events, "appendAssistantDelta", content, args);
}

bool isTokenUsage(const json& usage) {
  constexpr std::array keys = {"prompt_tokens", "completion_tokens", "total_tokens"};
  return std::any_of(keys.begin(), keys.end(), [&usage](auto key) { return usage.contains(key); });
}

void translateCompletionChunk(TurnStream& stream, const json& chunk) {
  const json* choices = findArray(chunk, "choices");
  if (choices == nullptr || choices->empty()) return;
  const json& choice = choices->front();
  if (const json* delta = findObject(choice, "delta"))
    addContent(stream, readText(*delta, "content"));
  const json* usage = findObject(chunk, "usage");
  if (usage != nullptr && isTokenUsage(*usage)) stream.usage = *usage;
  if (choice.is_object() && choice.contains("finish_reason") &&
      !choice["finish_reason"].is_null()) {
    stream.done = true;
  }
}

}  // namespace

void onStreamChunk(TurnStream& stream, std::string_view chunk) {
  stream.splitter.feed(chunk,
                       [&stream](std::string_view block) { translateEventBlock(stream, block); });
}

void finishStream(TurnStream& stream) {
  const std::string_view pending = stream.splitter.pending();
  if (!stream.done && !pending.empty()) translateEventBlock(stream, pending);
}

void translateEventBlock(TurnStream& stream, std::string_view block) {
  const std::string data = dataOf(block);
  if (data.empty() || data == "[DONE]") {
    stream.done = !data.empty();
    return;
  }
  json event;
  std::string error;
  if (parseJson(data, event, error) != ParseOutcome::ok) throw std::runtime_error(error);
  if (event.is_object() && event.contains("error") && !event["error"].is_null()) {
    showError(stream, event["error"]);
  } else if (readText(event, "object") == "morva.event") {
    translateAgentEvent(*stream.events, stream.chatSessionId, std::move(event));
  } else {
    translateCompletionChunk(stream, event);
  }
}

}  // namespace media::win::chrome_inspect
