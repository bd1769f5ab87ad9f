#include "chat/speech.h"

#include "agent/agent_end.h"
#include "agent/current_agent.h"
#include "support/agent_double.h"
#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/child_probe.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Waits until that much has been sent to the panel.
std::string waitFor(CapturedOutput& output, const std::string& events) {
  return briefEvents(output.waitUntil(
      [&events](const auto& frames) { return briefEvents(frames).size() >= events.size(); }));
}

TEST(ControlSpeech, OnlySendsItsEventWithoutAnAgent) {
  CapturedOutput output;
  std::string wanted;
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(controlSpeech(SpeechControl::pause));
    EXPECT_TRUE(controlSpeech(SpeechControl::resume));
    EXPECT_TRUE(controlSpeech(SpeechControl::stop));
    wanted += (i == 0 ? "" : "; ") + std::string("ttsPaused []; ttsResumed []; ttsDone []");
  }
  EXPECT_EQ(waitFor(output, wanted), wanted);
}

TEST(ControlSpeech, KeepsTheOrderOnTheWayToTheAgent) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, "{}", "500 No"); });
  agent.adopt();
  std::vector<std::string> wanted;
  for (int i = 0; i < 50; ++i) {
    EXPECT_TRUE(controlSpeech(SpeechControl::pause));
    EXPECT_TRUE(controlSpeech(i % 2 == 0 ? SpeechControl::resume : SpeechControl::stop));
    wanted.insert(wanted.end(),
                  {"/v1/speak/pause", i % 2 == 0 ? "/v1/speak/resume" : "/v1/speak/stop"});
  }
  const auto requests = agent.waitForRequests("POST /v1/speak/", wanted.size());
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
    {"200 OK", R"({"ok":true,"error":"x"})", ""},
    {"200 OK", R"({"ok":false,"error":"no voice"})", "no voice"},
    {"200 OK", R"({"ok":false,"error":""})", "speak failed"},
    {"201 Created", R"({"ok":true})", "speak failed"},
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
    const json line = {{"role", "error"}, {"text", c.error}};
    const std::string error = "appendText " + json::array({line}).dump() + "; ";
    const std::string wanted = "ttsStarted []; " + (*c.error == '\0' ? "" : error) + "ttsDone []";
    EXPECT_EQ(waitFor(output, wanted), wanted);
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
  (void)waitFor(output, "ttsStarted []; ttsDone []");
  EXPECT_TRUE(stopUnusedAgent());
}

// The agent answers a reading only when the gate opens, and what it answers then is too late.
TEST(StartSpeech, IsEndedByAStopAndByTheEndOfTheHost) {
  for (const bool isEnd : {false, true}) {
    Gate ended;
    CapturedOutput output;
    AgentDouble agent([&ended](ServedConnection& connection) {
      if (connection.request.starts_with("POST /v1/speak ")) ended.wait();
      answerWith(connection, R"({"ok":false,"error":"too late"})");
    });
    agent.adopt();
    EXPECT_TRUE(startSpeech("a"));
    (void)agent.waitForRequests("POST /v1/speak ", 1);
    EXPECT_EQ(briefEvents(output.waitFor(1)), "ttsStarted []");
    if (isEnd) {
      cancelAllAgentRequests();
    } else {
      EXPECT_TRUE(controlSpeech(SpeechControl::stop));
    }
    ended.open();  // some systems only notice the abort with the next byte
    const std::string wanted = "ttsStarted []; ttsDone []" + (isEnd ? ""s : "; ttsDone []");
    EXPECT_EQ(waitFor(output, wanted), wanted);
  }
}

TEST(StartSpeech, DoesNothingWithoutText) {
  CapturedOutput output;
  EXPECT_TRUE(startSpeech(""));
  EXPECT_TRUE(output.finish().empty());
}

}  // namespace
}  // namespace media::win::chrome_inspect
