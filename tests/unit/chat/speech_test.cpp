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

TEST(ControlSpeech, OnlySendsItsEventWithoutAnAgent) {
  CapturedOutput output;
  for (const auto control : {SpeechControl::pause, SpeechControl::resume, SpeechControl::stop}) {
    EXPECT_TRUE(controlSpeech(control));
  }
  expectBrief(output, "ttsPaused []; ttsResumed []; ttsDone []");
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

// Without an error it is spoken.
const std::tuple<std::string, std::string> speakCases[] = {
    {answerText(R"({"ok":true,"error":"x"})"), ""},
    {answerText(R"({"ok":false,"error":"no voice"})"), "no voice"},
    {answerText(R"({"ok":false,"error":""})"), "speak failed"},
    {answerText(R"({"ok":true})", "201 Created"), "speak failed"},
    {"", "agent request failed"},
};

TEST(StartSpeech, EndsEachReadingOnce) {
  for (const auto& [answer, error] : speakCases) {
    SCOPED_TRACE(answer);
    AgentDouble agent(sendInPieces(answer, 1000));
    agent.adopt();
    CapturedOutput output;
    EXPECT_TRUE(startSpeech("a \"text\""));
    const json line = {{{"role", "error"}, {"text", error}}};
    expectBrief(output, "ttsStarted []; " +
                            (error.empty() ? "" : "appendText " + line.dump() + "; ") +
                            "ttsDone []");
    EXPECT_EQ(bodyOf(agent.requests("POST /v1/speak ").at(0)), R"({"text":"a \"text\""})");
  }
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
  expectBrief(output, "ttsStarted []; ttsDone []");
  EXPECT_TRUE(stopUnusedAgent());
}

// The agent begins to answer a reading when a gate opens, and never comes to the end.
TEST(StartSpeech, IsEndedByAStopAndByTheEndOfTheHost) {
  for (const bool isEnd : {false, true}) {
    Gate ended;
    Gate over;
    CapturedOutput output;
    AgentDouble agent([&](ServedConnection& connection) {
      if (!connection.request.starts_with("POST /v1/speak ")) return answerWith(connection, "{}");
      ended.wait();
      (void)connection.send("HTTP/1.1 200 OK\r\n");
      over.wait();
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
    expectBrief(output, "ttsStarted []; ttsDone []" + (isEnd ? ""s : "; ttsDone []"));
    over.open();
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
