#include "chat/realtime.h"

#include "agent/current_agent.h"
#include "platform/clock.h"
#include "support/agent_double.h"
#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/child_probe.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string done = "realtimeDone []";

std::string failure(const std::string& text) {
  return "realtimeError " + json::array({text}).dump() + "; " + done;
}

std::string event(const std::string& method) {
  return "data: {\"method\":\"" + method + "\",\"args\":[],\"id\":5}\n\n";
}

// Answers the start with ok and lets the script have the events.
AgentDouble::Script session(AgentDouble::Script events) {
  return [events = std::move(events)](ServedConnection& connection) {
    if (connection.request.starts_with("GET /v1/realtime/events")) return events(connection);
    answerWith(connection, R"({"ok":true})", "299 Fine");
  };
}

TEST(Realtime, StopReportsTheEndWithoutAnAgent) {
  CapturedOutput output;
  stopRealtime();
  pushToTalk(json::object());
  stopRealtimeEvents();
  EXPECT_EQ(briefEvents(output.finish()), done);
}

TEST(Realtime, PushToTalkRefusesOtherTypes) {
  EXPECT_THROW(pushToTalk({{"held", 5}}), json::type_error);
  EXPECT_THROW(pushToTalk({{"latched", "x"}}), json::type_error);
  EXPECT_NO_THROW(pushToTalk({{"held", nullptr}}));
}

const std::string head(streamHead);

const std::tuple<const char*, std::string, std::string> endCases[] = {
    {"an end in order", head, done},
    {"after an event", head + event("realtimeA"), "realtimeA []; " + done},
    {"its own end", head + event("realtimeDone"), done},
    {"its own end, unfinished", head + R"(data: {"method":"realtimeDone","args":[]})", done},
    {"another status", answerText("", "500 No"), failure("realtime session failed")},
    {"another status, its own end", "HTTP/1.1 404 No\r\n\r\n" + event("realtimeDone"), done},
    {"broken off", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n", done},
    {"no answer", "", failure("agent request failed")},
};

// One session after the other: an event too many would stand before those of the next.
TEST(Realtime, ReportsTheEndOfTheStreamOnce) {
  CapturedOutput output;
  std::string wanted;
  for (const auto& [name, answer, events] : endCases) {
    SCOPED_TRACE(name);
    AgentDouble agent(session(sendInPieces(answer, 1000)));
    agent.adopt();
    startRealtime(json::object());
    wanted += (wanted.empty() ? "" : "; ") + events;
    expectBrief(output, wanted);
  }
}

const std::tuple<const char*, const char*> startCases[] = {
    {"{}", R"({"acquire_timeout_ms":1500,"mic_send":true})"},
    {R"({"preset":"p","chat_session_id":"c"})",
     R"({"acquire_timeout_ms":1500,"chat_session_id":"c","mic_send":true,"preset":"p"})"},
    {R"({"preset":"","chat_session_id":null})", R"({"acquire_timeout_ms":1500,"mic_send":true})"},
    {R"({"mic_send":false,"acquire_timeout_ms":20})",
     R"({"acquire_timeout_ms":20,"mic_send":false})"},
    {R"({"mic_send":1,"acquire_timeout_ms":"9","preset":5,"chat_session_id":[1],"browser":[1]})",
     R"({"acquire_timeout_ms":1500,"mic_send":true})"},
    {R"({"acquire_timeout_ms":1e300})", R"({"acquire_timeout_ms":1500,"mic_send":true})"},
};

const std::tuple<const char*, const char*> keyCases[] = {
    {"{}", R"({"finishInputTurn":false,"held":true,"latched":false})"},
    {R"({"held":false,"latched":true,"finishInputTurn":true})",
     R"({"finishInputTurn":true,"held":false,"latched":true})"},
    {R"({"held":null})", R"({"finishInputTurn":false,"held":true,"latched":false})"},
};

TEST(Realtime, PostsWhatThePanelSaysAndDefaults) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, "{}"); });
  agent.adopt();
  for (const auto& [request, body] : startCases) {
    startRealtime(json::parse(request));
    EXPECT_EQ(bodyOf(agent.requests("POST /v1/realtime/start ").back()), body);
  }
  for (const auto& [request, body] : keyCases) {
    pushToTalk(json::parse(request));
    EXPECT_EQ(bodyOf(agent.requests("POST /v1/realtime/ptt ").back()), body);
  }
  stopRealtime();
  EXPECT_EQ(bodyOf(agent.requests("POST /v1/realtime/stop ").back()), "{}");
}

const std::tuple<std::string, const char*> failedStarts[] = {
    {answerText(R"({"ok":false,"error":"no microphone"})"), "no microphone"},
    {answerText(R"({"ok":false,"error":""})"), "realtime session failed"},
    {answerText(R"({"ok":true})", "300 Choice"), "realtime start failed"},
    {"", "agent request failed"},
};

TEST(Realtime, AFailedStartIsReportedAndOver) {
  for (const auto& [answer, error] : failedStarts) {
    AgentDouble agent(sendInPieces(answer, 1000));
    agent.adopt();
    CapturedOutput output;
    startRealtime(json::object());
    EXPECT_EQ(briefEvents(output.finish()), failure(error)) << answer;
    EXPECT_TRUE(agent.requests("GET /v1/realtime/events").empty());
  }
}

// What the agent says before it ends the session's stream, and who else ends the session.
const std::tuple<std::string, void (*)()> useCases[] = {
    {"", nullptr},
    {event("realtimeDone"), nullptr},
    {"", stopRealtime},
    {"", stopRealtimeEvents},
};

// A session that says nothing is use, too.
TEST(Realtime, ASessionIsUseOfTheAgentUntilItsEnd) {
  for (const auto& [last, end] : useCases) {
    Gate over;
    CapturedOutput output;
    AgentDouble agent(session([&over, last = last](ServedConnection& connection) {
      (void)connection.send(head + event("realtimeA"));
      over.wait();
      (void)connection.send(last);
    }));
    (void)adoptOwnedAgent(idleChild(), agent.port());
    startRealtime(json::object());
    (void)output.waitFor(1);
    EXPECT_FALSE(stopUnusedAgent());
    if (end != nullptr) end();
    over.open();
    if (end == nullptr) expectBrief(output, "realtimeA []; " + done);
    EXPECT_TRUE(stopUnusedAgent());
  }
}

TEST(Realtime, ASecondStartThatFailsEndsTheFirstSession) {
  Gate over;
  CapturedOutput output;
  std::atomic<bool> refuses = false;
  AgentDouble agent([&](ServedConnection& connection) {
    if (!connection.request.starts_with("GET /v1/realtime/events")) {
      return answerWith(connection, refuses ? R"({"error":"busy"})" : R"({"ok":true})");
    }
    (void)connection.send(head + event("realtimeA"));
    over.wait();
    (void)connection.send(event("late"));
  });
  agent.adopt();
  startRealtime(json::object());
  (void)output.waitFor(1);
  refuses = true;
  for (int i = 0; i < 2; ++i) {  // with the second one there is no session to be ended
    startRealtime(json::object());
    EXPECT_EQ(agent.requests("POST /v1/realtime/stop ").size(), 1U);
  }
  over.open();
  EXPECT_EQ(briefEvents(output.finish()),
            "realtimeA []; " + failure("busy") + "; " + failure("busy"));
}

// Sessions whose streams end by themselves while they are being stopped: nothing of a session comes
// after its end.
TEST(Realtime, KeepsSessionsApartOverManyStartsAndStops) {
  constexpr int rounds = 100;
  CapturedOutput output;
  std::atomic<int> round = 0;
  AgentDouble agent(session([&round](ServedConnection& connection) {
    const std::string event =
        "data: {\"method\":\"realtimeN\",\"args\":[" + std::to_string(round) + "]}\n\n";
    (void)connection.send(std::string(streamHead) + event);
  }));
  agent.adopt();
  for (round = 0; round < rounds; ++round) {
    startRealtime(json::object());
    if (round % 2 == 0) (void)agent.waitForRequests("GET /v1/realtime", 1);
    stopRealtime();  // nothing of the session comes after this
  }
  int ends = 0;
  int ended = 0;  // the last round that was reported
  for (const std::string& each : eventsIn(output.finish())) {
    const json sent = json::parse(each);
    if (sent.at("method") == "realtimeDone") ++ends;
    if (sent.at("method") != "realtimeN") continue;
    const int number = sent.at("args").at(0);
    EXPECT_GE(number, ended);
    ended = number;
  }
  EXPECT_GE(ends, rounds);
}

}  // namespace
}  // namespace media::win::chrome_inspect
