#include "chat/agent_event.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "channel/panel_events.h"
#include "chat/text_events.h"
#include "text/ascii.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct TurnIds {
  const std::string& runId;
  const std::string& chatSessionId;
};

void showThinking(const TurnIds& turn, json& event) {
  for (const std::string_view piece : piecesForBrowser(readText(event, "text"))) {
    emitPanelMessage(
        "appendThinking",
        json::array(
            {{{"runId", turn.runId}, {"chatSessionId", turn.chatSessionId}, {"text", piece}}}));
  }
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

void showToolCall(const TurnIds&, json& event) {
  emitPanelMessage("appendText", json::array({toolLine(event, true)}));
}

void showToolResult(const TurnIds&, json& event) {
  const std::string_view path = readText(event, "path");
  emitPanelMessage("appendText", json::array({toolLine(event, false)}));
  if (path.empty()) return;
  const char* role = isImagePath(path) ? "image" : "file";
  emitPanelMessage("appendText", json::array({{{"role", role}, {"text", path}}}));
}

void showCommandRun(const TurnIds&, json& event) {
  const std::string_view id = readText(event, "id");
  const std::string_view step = readText(event, "event");
  if (id.empty()) return;
  if (step == "start") {
    emitPanelMessage("startRun", json::array({id, readText(event, "command")}));
  } else if (step == "done") {
    emitPanelMessage("finishRun", json::array({id, readInt32(event, "exit_code", -1),
                                               readInt64(event, "duration_ms", 0)}));
  } else if (const std::string_view chunk = readText(event, "chunk"); !chunk.empty()) {
    for (const std::string_view piece : piecesForBrowser(chunk)) {
      emitPanelMessage("appendRunChunk",
                       json::array({id, piece, readText(event, "stream", "stdout")}));
    }
  }
}

json consentPayload(json event) {
  for (const char* key : {"object", "type", "model"}) event.erase(key);
  return json::array({std::move(event)});
}

void askConsent(const TurnIds&, json& event) {
  emitPanelMessage("consentRequest", consentPayload(std::move(event)));
}

void dismissConsent(const TurnIds&, json& event) {
  emitPanelMessage("dismissConsent", consentPayload(std::move(event)));
}

struct EventType {
  std::string_view type;
  void (*show)(const TurnIds& turn, json& event);  // may take parts out of the event
};

constexpr EventType eventTypes[] = {
    {"thinking", showThinking},      {"tool_call", showToolCall},
    {"tool_result", showToolResult}, {"tool_file_progress", showCommandRun},
    {"consent", askConsent},         {"consent.dismiss", dismissConsent},
};

}  // namespace

void translateAgentEvent(const std::string& runId, const std::string& chatSessionId, json event) {
  const std::string type(readText(event, "type"));
  for (const EventType& known : eventTypes) {
    if (known.type == type) return known.show({runId, chatSessionId}, event);
  }
}

}  // namespace media::win::chrome_inspect
