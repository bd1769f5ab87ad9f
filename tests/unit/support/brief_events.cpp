#include "support/brief_events.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {

std::string briefEvents(const CapturedOutput::Frames& frames) {
  std::string brief;
  for (const std::string& text : eventsIn(frames)) {
    nlohmann::json event = nlohmann::json::parse(text);
    if (event.at("method") == "appendDebugLog") continue;
    nlohmann::json& args = event.at("args");
    if (!args.empty() && args[0].is_object()) {
      if (args[0].value("runId", "") == "r") args[0].erase("runId");
      if (args[0].value("chatSessionId", "") == "c") args[0].erase("chatSessionId");
    }
    if (!brief.empty()) brief += "; ";
    brief += event.at("method").get<std::string>() + " " + args.dump();
  }
  return brief;
}

void expectBrief(CapturedOutput& output, const std::string& events) {
  const auto frames = output.waitUntil(
      [&events](const auto& sent) { return briefEvents(sent).size() >= events.size(); });
  EXPECT_EQ(briefEvents(frames), events);
}

}  // namespace media::win::chrome_inspect
