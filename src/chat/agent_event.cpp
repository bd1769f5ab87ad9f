#include "chat/agent_event.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "chat/text_events.h"
#include "text/ascii.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct Turn {
  TurnEvents& events;
  const std::string& chatSessionId;
};

void showThinking(const Turn& turn, json& event) {
  const auto args = [&turn](std::string_view piece, std::uint32_t) {
    return json::array(
        {{{"runId", turn.events.runId()}, {"chatSessionId", turn.chatSessionId}, {"text", piece}}});
  };
  (void)sendText(turn.events, "appendThinking", readText(event, "text"), args);
}

bool isImagePath(std::string_view path) {
  constexpr std::array<std::string_view, 6> images = {"jpg", "jpeg", "png", "webp", "gif", "avif"};
  const std::size_t dot = path.rfind('.');
  if (dot == std::string_view::npos) return false;
  const std::string extension = foldCase(path.substr(dot + 1));
  return std::find(images.begin(), images.end(), extension) != images.end();
}

json toolLine(const json& event, bool running) {
  const std::string_view name = readText(event, "name", "tool");
  const std::string_view text = readText(event, "text");
  json line = {{"role", "tool"}, {"text", text.empty() ? name : text}};
  const auto id = event.find("id");
  if (id != event.end() && id->is_string()) line["toolCallId"] = *id;
  const auto duration = event.find("duration_ms");
  if (duration != event.end() && duration->is_number()) line["durationMs"] = *duration;
  if (running) line["toolRunning"] = true;
  return line;
}

void showToolCall(const Turn& turn, json& event) {
  turn.events.send("appendText", json::array({toolLine(event, true)}));
}

void showToolResult(const Turn& turn, json& event) {
  const std::string_view path = readText(event, "path");
  turn.events.send("appendText", json::array({toolLine(event, false)}));
  if (path.empty()) return;
  const char* role = isImagePath(path) ? "image" : "file";
  turn.events.send("appendText", json::array({{{"role", role}, {"text", path}}}));
}

void showCommandRun(const Turn& turn, json& event) {
  const std::string_view id = readText(event, "id");
  if (id.empty()) return;
  const std::string_view step = readText(event, "event");
  if (step == "start") {
    turn.events.send("startRun", json::array({id, readText(event, "command")}));
  } else if (step == "done") {
    turn.events.send("finishRun", json::array({id, readInt32(event, "exit_code", -1),
                                               readInt64(event, "duration_ms", 0)}));
  } else if (const std::string_view chunk = readText(event, "chunk"); !chunk.empty()) {
    const std::string_view stream = readText(event, "stream", "stdout");
    const auto args = [id, stream](std::string_view piece, std::uint32_t) {
      return json::array({id, piece, stream});
    };
    (void)sendText(turn.events, "appendRunChunk", chunk, args);
  }
}

json consentPayload(json event) {
  for (const char* key : {"object", "type", "model"}) event.erase(key);
  return json::array({std::move(event)});
}

void askConsent(const Turn& turn, json& event) {
  turn.events.send("consentRequest", consentPayload(std::move(event)));
}

void dismissConsent(const Turn& turn, json& event) {
  turn.events.send("dismissConsent", consentPayload(std::move(event)));
}

struct EventType {
  std::string_view type;
  void (*show)(const Turn& turn, json& event);  // may take parts out of the event
};

constexpr EventType eventTypes[] = {
    {"thinking", showThinking},      {"tool_call", showToolCall},
    {"tool_result", showToolResult}, {"tool_file_progress", showCommandRun},
    {"consent", askConsent},         {"consent.dismiss", dismissConsent},
};

}  // namespace

void translateAgentEvent(TurnEvents& events, const std::string& chatSessionId, json event) {
  const std::string type(readText(event, "type"));
  for (const EventType& known : eventTypes) {
    if (known.type == type) return known.show({events, chatSessionId}, event);
  }
}

}  // namespace media::win::chrome_inspect
