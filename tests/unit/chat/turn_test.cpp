#include "chat/turn.h"

#include "agent/agent_request.h"
#include "agent/agent_starts.h"
#include "agent_process/supervision.h"
#include "support/agent_double.h"
#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string head(streamHead);
const std::string delta = "data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n\n";

bool asksForModels(const ServedConnection& connection) {
  return connection.request.starts_with("GET /v1/models HTTP/1.1\r\n");
}

json sendMessage(const json& more = json::object()) {
  json message = {{"kind", "send"}, {"prompt", "p"}, {"preset", "m"}, {"chat_session_id", "c"}};
  message.update(more);
  return message;
}

// The events of a turn, with "r" for its run id.
std::string eventsIn(CapturedOutput& output, const ChatTurn& turn) {
  const std::string& runId = turn.events->runId();
  std::string frames = json(output.finish()).dump();
  for (std::size_t i = frames.find(runId); i != frames.npos; i = frames.find(runId, i)) {
    frames.replace(i, runId.size(), "r");
  }
  return briefEvents(json::parse(frames).get<CapturedOutput::Frames>());
}

// Runs a turn and returns its events.
std::string eventsOf(const json& message) {
  const ChatTurn turn(message);
  CapturedOutput output;
  run_turn(turn);
  return eventsIn(output, turn);
}

const std::string begun =
    R"(setBusy [true]; agentStarted [{"chat_session_id":"c","id":"r","name":"m"}]; )";
const std::string unnamed =
    R"(setBusy [true]; agentStarted [{"chat_session_id":"c","id":"r","name":"agent"}]; )";

std::string ended(const std::string& error) {
  return "agentDone " + json{"r", error.empty(), error}.dump();
}

TEST(Turn, ShowsTheAnswerThenItsUsageThenTheEnd) {
  AgentDouble agent([](ServedConnection& connection) {
    (void)connection.send(head + delta +
                          "data: {\"choices\":[{}],\"usage\":{\"total_tokens\":3}}\n\n"
                          "data: {\"choices\":[{\"delta\":{\"content\":\"b\"}}]}");
  });
  agent.adopt();
  EXPECT_EQ(eventsOf(sendMessage()), begun + R"(appendAssistantDelta [{"delta":"a","seq":1}]; )" +
                                         R"(appendAssistantDelta [{"delta":"b","seq":2}]; )" +
                                         R"(completeAssistantText [{"text":"ab"}]; )" +
                                         R"(setTurnLlmUsage [{"total_tokens":3}]; )" + ended(""));
}

struct EndCase {
  const char* name;
  std::string answer;
  const char* error;  // a beginning; nullptr: the turn succeeds
};

const EndCase endCases[] = {
    {"an end without a word", head, nullptr},
    {"the last good status", answerText("", "399 X"), nullptr},
    {"the first bad one", answerText("", "400 X"), "agent request failed"},
    {"a bad one with an error event", answerText("data: {\"error\":\"busy\"}\n\n", "503 X"),
     "agent request failed"},
    {"a bad one after some text", "HTTP/1.1 500 No\r\n\r\n" + delta, nullptr},
    {"broken off", "HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n" + delta, nullptr},
    {"no answer", "", "agent request failed"},
    {"no JSON", head + delta + "data: {x\n\n", "[json.exception.parse_error.101] "},
};

TEST(Turn, EndsOnceHoweverTheRequestEnds) {
  for (const EndCase& c : endCases) {
    SCOPED_TRACE(c.name);
    AgentDouble agent(sendInPieces(c.answer, 1000));
    agent.adopt();
    const std::string events = eventsOf(sendMessage());
    const std::size_t end = events.find("agentDone ");
    ASSERT_NE(end, events.npos);
    const json done = json::parse(events.substr(end + 10));  // nothing comes after it
    EXPECT_EQ(done.at(1), c.error == nullptr);
    EXPECT_TRUE(done.at(2).get<std::string>().starts_with(c.error ? c.error : "")) << done;
    EXPECT_EQ(events.find("completeAssistantText") != events.npos, c.error == nullptr);
  }
}

struct RequestCase {
  const char* message;
  const char* content;
  const char* morva;
};

const RequestCase requestCases[] = {
    {R"({})", "p", "{}"},
    {R"({"browser":["u"],"context_paths":{"a":1}})", "p", "{}"},
    {R"({"browser":null,"context_paths":null})", "p", "{}"},
    {R"({"context_paths":[]})", "p", R"({"selection":[]})"},
    {R"({"browser":{}})", "p", R"({"browser":{}})"},
    {R"({"browser":{"currentUrl":"","currentTitle":"t"}})", "p",
     R"({"browser":{"currentTitle":"t","currentUrl":""}})"},
    {R"({"browser":{"currentUrl":null,"currentTitle":"t"}})", "p",
     R"({"browser":{"currentTitle":"t","currentUrl":null}})"},
    {R"({"browser":{"currentUrl":"u\n","currentTitle":"\n"},"context_paths":["x"]})",
     "[chrome tab] \n \xE2\x80\x94 u\n\n\np",
     R"({"browser":{"currentTitle":"\n","currentUrl":"u\n"},"selection":["x"]})"},
    {R"({"browser":"u","context_paths":5})", "p", "{}"},
    {R"({"browser":{"currentUrl":"u"}})", "[chrome tab]  \xE2\x80\x94 u\n\np",
     R"({"browser":{"currentUrl":"u"}})"},
};

TEST(Turn, AsksWithTheTabAndTheSelection) {
  AgentDouble agent(sendInPieces(head, 1000));
  agent.adopt();
  for (const RequestCase& c : requestCases) {
    SCOPED_TRACE(c.message);
    (void)eventsOf(sendMessage(json::parse(c.message)));
    json body = json::parse(bodyOf(agent.requests("POST /v1/chat/completions ").back()));
    json morva = body.value("morva", json::object());
    morva.erase("cwd");  // the system's choice
    EXPECT_EQ(morva.dump(), json::parse(c.morva).dump());
    body.erase("morva");
    const json messages = {{{"role", "user"}, {"content", c.content}}};
    EXPECT_EQ(
        body,
        (json{{"model", "m"}, {"stream", true}, {"messages", messages}, {"session_id", "c"}}));
  }
  EXPECT_TRUE(agent.requests("GET /v1/models").empty());
}

TEST(Turn, IsOfTheSessionChromeWhenNoneIsNamed) {
  AgentDouble agent(sendInPieces(head, 1000));
  agent.adopt();
  for (const json& id : {json(""), json(nullptr)}) {
    const std::string events = eventsOf(sendMessage({{"chat_session_id", id}}));
    EXPECT_NE(events.find(R"("chat_session_id":"chrome")"), events.npos);
    EXPECT_NE(events.find(R"("chatSessionId":"chrome")"), events.npos);
    const json body = json::parse(bodyOf(agent.requests("POST ").back()));
    EXPECT_EQ(body.at("session_id"), "chrome");
  }
}

struct PresetCase {
  const char* name;
  std::string answer;
  const char* error;  // a beginning
};

const PresetCase presetCases[] = {
    {"an empty list", answerText(R"({"data":[]})"), "no chat preset is selected"},
    {"a failure that is JSON", answerText("5", "500 No"), "no chat preset is selected"},
    {"no JSON", answerText("<html>"), "[json.exception.parse_error.101] "},
    {"nothing", answerText(""), "[json.exception.parse_error.101] "},
    {"too deep", answerText(std::string(20'000, '[')), "json nested too deeply"},
    {"no answer", "", "agent request failed"},
    {"half an answer", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{", "agent response truncated"},
};

TEST(Turn, AsksForAPresetWhenNoneIsGiven) {
  AgentDouble agent([](ServedConnection& connection) {
    if (!asksForModels(connection)) return (void)connection.send(head);
    answerWith(connection,
               R"({"data":[{"id":"a"},{"id":"b","morva_is_default":true,"morva_preset_id":"x"}]})");
  });
  agent.adopt();
  EXPECT_EQ(eventsOf(sendMessage({{"preset", nullptr}})),
            unnamed + R"(completeAssistantText [{"text":""}]; )" + ended(""));
  EXPECT_EQ(json::parse(bodyOf(agent.requests("POST ").at(0))).at("model"), "x");
}

TEST(Turn, EndsWithoutAPreset) {
  for (const PresetCase& c : presetCases) {
    SCOPED_TRACE(c.name);
    AgentDouble agent(sendInPieces(c.answer, 100'000));
    agent.adopt();
    const std::string events = eventsOf(sendMessage({{"preset", ""}}));
    const std::string wanted = unnamed + R"(agentDone ["r",false,")" + c.error;
    EXPECT_EQ(events.substr(0, wanted.size()), wanted);
    EXPECT_TRUE(agent.requests("POST ").empty());
  }
}

TEST(Turn, EndsBeforeItBeginsForATextOfAnotherType) {
  for (const char* const key : {"prompt", "preset", "chat_session_id"}) {
    EXPECT_EQ(eventsOf(sendMessage({{key, 5}})),
              ended("[json.exception.type_error.302] type must be string, but is number"));
  }
}

TEST(Turn, StoppedBeforeItRunsMakesNoRequest) {
  AgentDouble agent(sendInPieces(head, 1000));
  agent.adopt();
  const ChatTurn turn(sendMessage());
  CapturedOutput output;
  stopTurns();
  run_turn(turn);
  EXPECT_EQ(eventsIn(output, turn), begun + ended("cancelled"));
  EXPECT_TRUE(agent.requests().empty());
}

// The request that the agent does not answer before the turn has ended.
const char* const phases[] = {"GET /ready ", "POST /v1/host-tool-providers ", "GET /v1/models ",
                              "POST /v1/chat/completions "};

TEST(Turn, EndsWhenItIsStoppedWhateverItWaitsFor) {
  setAgentListener({.ready = [](const AgentId& agent) {
    (void)agentRequest(agent.port, L"POST", L"/v1/host-tool-providers", "{}");
  }});
  for (const std::string phase : phases) {
    SCOPED_TRACE(phase);
    Gate asked;
    Gate goOn;
    ScriptedServer agent([&](ServedConnection& connection) {
      if (connection.request.starts_with(phase)) {
        asked.open();
        goOn.wait();
      }
      if (!asksForModels(connection)) return answerWith(connection, "{}");
      answerWith(connection, R"({"data":[{"id":"a"}]})");
    });
    adoptFoundAgent(agent.port());
    const ChatTurn turn(sendMessage({{"preset", ""}}));
    CapturedOutput output;
    TestThread thread([&turn] { run_turn(turn); });
    asked.wait();
    stopTurns();
    const std::string events = eventsIn(output, turn);
    goOn.open();
    thread.join();
    EXPECT_EQ(events, unnamed + ended("cancelled"));
    const bool streams = phase == std::end(phases)[-1];
    EXPECT_EQ(agent.requests("POST /v1/chat/completions ").size(), streams ? 1U : 0U);
  }
}

TEST(Turn, EndsWhenItIsStoppedWhileAnotherThreadStartsAnAgent) {
  std::string error;
  ASSERT_EQ(joinStart(finishedStarts(), error), StartRole::leader);
  const ChatTurn turn(sendMessage());
  CapturedOutput output;
  TestThread thread([&turn] { run_turn(turn); });
  output.waitFor(2);
  stopTurns();
  EXPECT_EQ(eventsIn(output, turn), begun + ended("cancelled"));
  finishStart("x");
}

TEST(Turn, StoppedInAFloodOfEventsSaysNothingAfterItsEnd) {
  AgentDouble agent([](ServedConnection& connection) {
    (void)connection.send(head);
    while (connection.send(delta)) continue;
  });
  agent.adopt();
  const ChatTurn turn(sendMessage());
  CapturedOutput output;
  TestThread thread([&turn] { run_turn(turn); });
  output.waitFor(50);
  stopTurns();
  thread.join();
  const std::string events = eventsIn(output, turn);
  EXPECT_EQ(events.substr(events.find("agentDone")), ended("cancelled"));
}

TEST(Turn, StoppedInTheMiddleOfAnEventIsCancelled) {
  for (const std::string& rest : {"data: {"s, "data: {x\n\n"s}) {
    SCOPED_TRACE(rest);
    AgentDouble agent([&rest](ServedConnection& connection) {
      (void)connection.send(head);
      stopTurns();
      (void)connection.send(rest);
    });
    agent.adopt();
    EXPECT_EQ(eventsOf(sendMessage()), begun + ended("cancelled"));
  }
}

TEST(Turn, RunsOnAThreadOfItsOwnUntilItsEnd) {
  CapturedOutput output;
  AgentDouble agent(sendInPieces(head, 1000));
  agent.adopt();
  EXPECT_TRUE(startTurn(sendMessage()));
  const auto frames = output.waitUntil([](const CapturedOutput::Frames& all) {
    return !all.empty() && all.back().find("agentDone") != std::string::npos;
  });
  EXPECT_EQ(agent.requests("POST ").size(), 1U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
