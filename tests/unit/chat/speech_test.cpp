#include "chat/speech.h"

#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/current_agent.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/gate.h"
#include "support/idle_child.h"

namespace media::win::chrome_inspect {
namespace {

using Events = std::vector<std::string>;

std::string plain(const std::string& method) { return R"({"args":[],"method":")" + method + "\"}"; }

std::string errorLine(const std::string& text) {
  return nlohmann::json{{"method", "appendText"}, {"args", {{{"role", "error"}, {"text", text}}}}}
      .dump();
}

// What the panel is told, without the host's log lines and status.
Events told(const CapturedOutput::Frames& frames) {
  Events events;
  for (const std::string& each : eventsIn(frames)) {
    const bool isOther = each.find("appendDebugLog") != std::string::npos ||
                         each.find("hostStatus") != std::string::npos;
    if (!isOther) events.push_back(each);
  }
  return events;
}

Events waitForTold(CapturedOutput& output, std::size_t count) {
  return told(
      output.waitUntil([count](const auto& frames) { return told(frames).size() >= count; }));
}

TEST(ControlSpeech, OnlyTellsThePanelWithoutAnAgent) {
  CapturedOutput output;
  Events wanted;
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(controlSpeech(SpeechControl::pause));
    EXPECT_TRUE(controlSpeech(SpeechControl::resume));
    EXPECT_TRUE(controlSpeech(SpeechControl::stop));
    wanted.insert(wanted.end(), {plain("ttsPaused"), plain("ttsResumed"), plain("ttsDone")});
  }
  EXPECT_EQ(waitForTold(output, wanted.size()), wanted);
}

TEST(ControlSpeech, KeepsTheOrderOnTheWayToTheAgent) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, "{}", "500 No"); });
  agent.adopt();
  std::vector<std::string> wanted;
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(controlSpeech(SpeechControl::pause));
    EXPECT_TRUE(controlSpeech(i % 2 == 0 ? SpeechControl::resume : SpeechControl::stop));
    wanted.insert(wanted.end(),
                  {"/v1/speak/pause", i % 2 == 0 ? "/v1/speak/resume" : "/v1/speak/stop"});
  }
  (void)waitForTold(output, wanted.size());
  const std::vector<std::string> requests = agent.requests("POST /v1/speak/");
  ASSERT_EQ(requests.size(), wanted.size());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    EXPECT_TRUE(requests[i].starts_with("POST " + wanted[i] + " HTTP/1.1\r\n")) << i;
    EXPECT_EQ(bodyOf(requests[i]), "{}");
  }
}

struct SpeakCase {
  const char* status;
  const char* body;
  const char* error;  // empty: spoken
};

const SpeakCase speakCases[] = {
    {"200 OK", R"({"ok":true})", ""},
    {"200 OK", R"({"ok":true,"error":"x"})", ""},
    {"200 OK", R"({"ok":false,"error":"no voice"})", "no voice"},
    {"200 OK", R"({"ok":false,"error":""})", "speak failed"},
    {"200 OK", R"({"ok":false,"error":5})", "speak failed"},
    {"200 OK", R"({"ok":"yes"})", "speak failed"},
    {"200 OK", "{}", "speak failed"},
    {"200 OK", "", "speak failed"},
    {"200 OK", "{", "speak failed"},
    {"200 OK", "[true]", "speak failed"},
    {"201 Created", R"({"ok":true})", "speak failed"},
    {"500 No", R"({"ok":false,"error":"e"})", "speak failed"},
    {"", "", "agent request failed"},  // hangs up
};

TEST(StartSpeech, EndsEachReadingOnce) {
  std::atomic<const SpeakCase*> current = nullptr;
  AgentDouble agent([&current](ServedConnection& connection) {
    const bool speaks = connection.request.starts_with("POST /v1/speak ");
    const SpeakCase& c = *current;
    if (speaks && *c.status == '\0') return;
    answerWith(connection, speaks ? c.body : "{}", speaks ? c.status : "200 OK");
  });
  agent.adopt();
  for (const SpeakCase& c : speakCases) {
    SCOPED_TRACE(std::string(c.status) + " " + c.body);
    current = &c;
    CapturedOutput output;
    EXPECT_TRUE(startSpeech("a \"text\""));
    Events wanted = {plain("ttsStarted"), plain("ttsDone")};
    if (*c.error != '\0') wanted.insert(wanted.begin() + 1, errorLine(c.error));
    EXPECT_EQ(waitForTold(output, wanted.size()), wanted);
  }
  EXPECT_EQ(bodyOf(agent.requests("POST /v1/speak ").at(0)), R"({"text":"a \"text\""})");
}

TEST(StartSpeech, IsUseOfTheAgentUntilItsEnd) {
  Gate spoken;
  CapturedOutput output;
  AgentDouble agent([&spoken](ServedConnection& connection) {
    spoken.wait();
    answerWith(connection, R"({"ok":true})");
  });
  (void)adoptOwnedAgent(idleChild(), agent.port());
  EXPECT_TRUE(startSpeech("a"));
  (void)agent.waitForRequests("POST /v1/speak ", 1);
  EXPECT_FALSE(stopUnusedAgent());
  spoken.open();
  (void)waitForTold(output, 2);
  EXPECT_TRUE(stopUnusedAgent());
}

TEST(StartSpeech, DoesNothingWithoutText) {
  CapturedOutput output;
  EXPECT_TRUE(startSpeech(""));
  EXPECT_TRUE(output.finish().empty());
}

}  // namespace
}  // namespace media::win::chrome_inspect
