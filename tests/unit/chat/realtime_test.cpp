#include "chat/realtime.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/gate.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using Events = std::vector<std::string>;

constexpr const char* done = R"({"args":[],"method":"realtimeDone"})";

std::string failure(const std::string& text) {
  return json{{"method", "realtimeError"}, {"args", {text}}}.dump();
}

Events voiceEvents(const CapturedOutput::Frames& frames) {
  Events events;
  for (const std::string& each : eventsIn(frames)) {
    if (each.find(R"("method":"realtime)") != std::string::npos) events.push_back(each);
  }
  return events;
}

Events waitForVoice(CapturedOutput& output, std::size_t count) {
  return voiceEvents(output.waitUntil(
      [count](const auto& frames) { return voiceEvents(frames).size() >= count; }));
}

// Answers the start with ok and lets the script have the events.
AgentDouble::Script session(AgentDouble::Script events) {
  return [events = std::move(events)](ServedConnection& connection) {
    if (connection.request.starts_with("GET /v1/realtime/events")) return events(connection);
    answerWith(connection, R"({"ok":true})");
  };
}

TEST(Realtime, StopTellsTheEndWithoutAnAgent) {
  CapturedOutput output;
  stopRealtime();
  pushToTalk(json::object());
  stopRealtimeEvents();
  EXPECT_EQ(eventsIn(output.finish()), Events{done});
}

TEST(Realtime, PushToTalkRefusesOtherTypes) {
  EXPECT_THROW(pushToTalk({{"held", 5}}), json::type_error);
  EXPECT_THROW(pushToTalk({{"latched", "x"}}), json::type_error);
  EXPECT_NO_THROW(pushToTalk({{"held", nullptr}}));
}

struct EndCase {
  const char* name;
  std::string answer;
  Events events;
};

const EndCase endCases[] = {
    {"an end in order", std::string(streamHead), {done}},
    {"its own end",
     std::string(streamHead) + "data: {\"method\":\"realtimeDone\",\"args\":[]}\n\n",
     {done}},
    {"its own end, unfinished",
     std::string(streamHead) + "data: {\"method\":\"realtimeDone\",\"args\":[]}",
     {done}},
    {"another status",
     "HTTP/1.1 500 No\r\nContent-Length: 0\r\n\r\n",
     {failure("realtime session failed"), done}},
    {"no answer", "", {failure("agent request failed"), done}},
};

TEST(Realtime, TellsTheEndOfTheStreamOnce) {
  for (const EndCase& c : endCases) {
    SCOPED_TRACE(c.name);
    CapturedOutput output;
    {
      AgentDouble agent(
          session([&c](ServedConnection& connection) { (void)connection.send(c.answer); }));
      agent.adopt();
      startRealtime(json::object());
      (void)waitForVoice(output, c.events.size());
      sleepMs(50);
    }
    EXPECT_EQ(voiceEvents(output.finish()), c.events);
  }
}

TEST(Realtime, AFailedStartIsToldAndOver) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) {
    answerWith(connection, R"({"ok":false,"error":"no microphone"})");
  });
  agent.adopt();
  startRealtime({{"preset", "p"}, {"mic_send", "x"}});
  EXPECT_EQ(voiceEvents(output.finish()), (Events{failure("no microphone"), done}));
  EXPECT_EQ(bodyOf(agent.requests("POST /v1/realtime/start").at(0)),
            R"({"acquire_timeout_ms":1500,"mic_send":true,"preset":"p"})");
}

TEST(Realtime, AStoppedSessionSaysNothingMore) {
  Gate stopped;
  CapturedOutput output;
  {
    AgentDouble agent(session([&stopped](ServedConnection& connection) {
      (void)connection.send(std::string(streamHead) +
                            "data: {\"method\":\"realtimeA\",\"args\":[]}\n\n");
      stopped.wait();
      (void)connection.send("data: {\"method\":\"realtimeDone\",\"args\":[]}\n\n");
    }));
    agent.adopt();
    startRealtime(json::object());
    (void)waitForVoice(output, 1);
    stopRealtime();
    stopped.open();
  }
  sleepMs(100);
  EXPECT_EQ(voiceEvents(output.finish()), (Events{R"({"args":[],"method":"realtimeA"})", done}));
}

// Sessions whose streams end by themselves while they are being stopped: nothing of a session comes
// after its end.
TEST(Realtime, KeepsSessionsApartOverManyStartsAndStops) {
  constexpr int rounds = 100;
  CapturedOutput output;
  std::atomic<int> round = 0;
  {
    AgentDouble agent([&round](ServedConnection& connection) {
      if (!connection.request.starts_with("GET /v1/realtime/events")) {
        return answerWith(connection, R"({"ok":true})");
      }
      const std::string event =
          "data: {\"method\":\"realtimeN\",\"args\":[" + std::to_string(round) + "]}\n\n";
      (void)connection.send(std::string(streamHead) + event);
    });
    agent.adopt();
    for (round = 0; round < rounds; ++round) {
      startRealtime(json::object());
      if (round % 2 == 0) (void)agent.waitForRequests("GET /v1/realtime", 1);
      stopRealtime();
    }
  }
  sleepMs(100);
  const Events events = voiceEvents(output.finish());
  EXPECT_GE(std::count(events.begin(), events.end(), done), rounds);
  int ended = 0;  // ends that stopRealtime told
  for (const std::string& each : events) {
    if (each == done) continue;
    const int number = json::parse(each).at("args").at(0);
    EXPECT_GE(number, ended);
    ended = number;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
