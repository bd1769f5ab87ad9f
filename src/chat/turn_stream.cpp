#include "chat/turn_stream.h"

#include <algorithm>
#include <array>
#include <functional>
#include <stdexcept>
#include <utility>

#include "channel/framing.h"
#include "chat/agent_event.h"
#include "chat/text_events.h"
#include "text/json_parse.h"
#include "text/json_read.h"
#include "text/json_text.h"
#include "text/json_view.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::string_view field = "data:";

std::string_view fieldValue(std::string_view line) {
  line.remove_prefix(field.size());
  return line.starts_with(' ') ? line.substr(1) : line;
}

// The data of a block: the rest of its "data:" lines, joined with LF in `joined` when there are
// several. Other fields do not steer the translation.
std::string_view dataOf(std::string_view block, std::string& joined) {
  if (block.starts_with(field) && block.find('\n') == block.npos) return fieldValue(block);
  while (!block.empty()) {
    const std::string_view line = block.substr(0, block.find('\n'));
    block.remove_prefix(std::min(line.size() + 1, block.size()));
    if (!line.starts_with(field)) continue;
    if (!joined.empty()) joined += '\n';
    joined += fieldValue(line);
  }
  return joined;
}

void showError(TurnStream& stream, const json& error) {
  const std::string text =
      error.is_object() ? std::string(readText(error, "message", "agent failed")) : dumpJson(error);
  stream.events->send("appendText", json::array({{{"role", "error"}, {"text", text}}}));
  stream.done = true;
}

constexpr std::string_view deltaMethod = "appendAssistantDelta";

// Whether the text fits into a frame however much escaping adds.
bool surelyFits(std::string_view text) { return text.size() < outboundLimit() / 8; }

void sendLongContent(TurnStream& stream, std::string_view content) {
  stream.events->send(stream.frames);
  const auto args = [&stream](std::string_view piece, std::uint32_t index) {
    return json::array({{{"runId", stream.events->runId()},
                         {"chatSessionId", stream.chatSessionId},
                         {"seq", stream.seq + 1 + index},
                         {"delta", piece}}});
  };
  stream.seq += sendText(*stream.events, deltaMethod, content, args);
}

void addContent(TurnStream& stream, std::string_view content) {
  if (content.empty()) return;
  if (stream.assistantText.size() + content.size() > maxAssistantText) {
    throw std::length_error("agent answer too large");
  }
  stream.assistantText += content;
  if (!surelyFits(content)) return sendLongContent(stream, content);
  std::string& args = stream.frames.begin() += '[';
  JsonObjectText delta(args);
  delta.text("chatSessionId", stream.chatSessionId);
  delta.text("delta", content);
  delta.text("runId", stream.events->runId());
  delta.number("seq", ++stream.seq);
  delta.end();
  args += ']';
  stream.frames.end(deltaMethod);
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

void translateEvent(TurnStream& stream, json event) {
  stream.events->send(stream.frames);
  if (event.is_object() && event.contains("error") && !event["error"].is_null()) {
    showError(stream, event["error"]);
  } else if (readText(event, "object") == "morva.event") {
    translateAgentEvent(*stream.events, stream.chatSessionId, std::move(event));
  } else {
    translateCompletionChunk(stream, event);
  }
}

bool isNothing(JsonView value) { return !value || value.isNull(); }

// The content of an event that is a delta of the answer and nothing else, as nearly all events of a
// stream are; none of any other.
JsonView plainDelta(JsonView event) {
  const JsonView object = event["object"];
  const JsonView choices = event["choices"];
  if (!isNothing(event["error"]) || !isNothing(event["usage"]) || choices.size() != 1) return {};
  if (object && (!object.isString() || object.text() == "morva.event")) return {};
  for (const JsonView choice : choices.elements()) {
    const JsonView content = choice["delta"]["content"];
    if (isNothing(choice["finish_reason"]) && content.isString()) return content;
  }
  return {};
}

// Leaves deltas in the stream's frames.
void addEventBlock(TurnStream& stream, std::string_view block) {
  std::string joined;
  const std::string_view data = dataOf(block, joined);
  if (data.empty() || data == "[DONE]") {
    stream.done = !data.empty();
    return;
  }
  JsonDocument event;
  std::string error;
  if (readJson(data, event, error) != ParseOutcome::ok) throw std::runtime_error(error);
  if (const JsonView content = plainDelta(event.root())) return addContent(stream, content.text());
  translateEvent(stream, event.root().toValue());
}

// Sends what was translated before something was not understood, too.
void sendAfter(TurnStream& stream, const std::function<void()>& translate) {
  try {
    translate();
  } catch (...) {
    stream.events->send(stream.frames);
    throw;
  }
  stream.events->send(stream.frames);
}

}  // namespace

void onStreamChunk(TurnStream& stream, std::string_view chunk) {
  const auto onBlock = [&stream](std::string_view block) { addEventBlock(stream, block); };
  sendAfter(stream, [&] { stream.splitter.feed(chunk, onBlock); });
}

void finishStream(TurnStream& stream) {
  const std::string_view pending = stream.splitter.pending();
  if (!stream.done && !pending.empty()) translateEventBlock(stream, pending);
}

void translateEventBlock(TurnStream& stream, std::string_view block) {
  sendAfter(stream, [&] { addEventBlock(stream, block); });
}

}  // namespace media::win::chrome_inspect
