#include "chat/turn.h"

#include "agent/agent_request.h"
#include "agent_process/supervision.h"
#include "chat/preset_list.h"
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

const std::string wrongType = "[json.exception.type_error.302] type must be string, but is number";
const std::string shown = R"(appendAssistantDelta [{"delta":"a","seq":1}]; )";
const std::string whole = shown + R"(completeAssistantText [{"text":"a"}]; )";
const std::string nothing = R"(completeAssistantText [{"text":""}]; )";

// The events after those of the beginning.
const std::tuple<const char*, std::string, std::string> endCases[] = {
    {"a whole answer, but for its last blank line",
     head + delta + "data: {\"choices\":[{}],\"usage\":{\"total_tokens\":3}}",
     whole + R"(setTurnLlmUsage [{"total_tokens":3}]; )" + ended("")},
    {"an end without a word", head, nothing + ended("")},
    {"the last good status", answerText("", "399 X"), nothing + ended("")},
    {"the first bad one", answerText("", "400 X"), ended("agent request failed")},
    {"a bad one with an error event", answerText("data: {\"error\":5}\n\n", "503 X"),
     R"(appendText [{"role":"error","text":"5"}]; )" + ended("agent request failed")},
    {"a bad one after some text", "HTTP/1.1 500 No\r\n\r\n" + delta, whole + ended("")},
    {"broken off", "HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n" + delta, whole + ended("")},
    {"no answer", "", ended("agent request failed")},
    {"what cannot be understood", head + delta + "data: {\"object\":5}\n\n",
     shown + ended(wrongType)},
};

TEST(Turn, EndsOnceHoweverTheRequestEnds) {
  for (const auto& [name, answer, events] : endCases) {
    SCOPED_TRACE(name);
    AgentDouble agent(sendInPieces(answer, 1000));
    agent.adopt();
    EXPECT_EQ(eventsOf(sendMessage()), begun + events);
  }
}

const std::tuple<const char*, const char*, const char*> requestCases[] = {
    {R"({})", "p", "{}"},
    {R"({"browser":["u"],"context_paths":{"a":1}})", "p", "{}"},
    {R"({"context_paths":[]})", "p", R"({"selection":[]})"},
    {R"({"browser":{}})", "p", R"({"browser":{}})"},
    {R"({"browser":{"currentUrl":"","currentTitle":"t"}})", "p",
     R"({"browser":{"currentTitle":"t","currentUrl":""}})"},
    {R"({"browser":{"currentUrl":null,"currentTitle":"t"}})", "p",
     R"({"browser":{"currentTitle":"t","currentUrl":null}})"},
    {R"({"browser":{"currentUrl":"u\n","currentTitle":"\n"},"context_paths":["x"]})",
     "[chrome tab] \n \xE2\x80\x94 u\n\n\np",
     R"({"browser":{"currentTitle":"\n","currentUrl":"u\n"},"selection":["x"]})"},
    {R"({"browser":{"currentUrl":"u"}})", "[chrome tab]  \xE2\x80\x94 u\n\np",
     R"({"browser":{"currentUrl":"u"}})"},
};

TEST(Turn, AsksWithTheTabAndTheSelection) {
  AgentDouble agent(sendInPieces(head, 1000));
  agent.adopt();
  for (const auto& [message, content, morva] : requestCases) {
    SCOPED_TRACE(message);
    (void)eventsOf(sendMessage(json::parse(message)));
    json body = json::parse(bodyOf(agent.requests("POST /v1/chat/completions ").back()));
    json sent = body.value("morva", json::object());
    sent.erase("cwd");  // the system's choice
    EXPECT_EQ(sent.dump(), json::parse(morva).dump());
    body.erase("morva");
    const json messages = {{{"role", "user"}, {"content", content}}};
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

// With the beginning of the error.
const std::tuple<const char*, std::string, const char*> presetCases[] = {
    {"an empty list", answerText(R"({"data":[]})"), "no chat preset is selected"},
    {"a failure that is JSON", answerText("5", "500 No"), "no chat preset is selected"},
    {"no JSON", answerText("<html>"), "[json.exception.parse_error.101] "},
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
  for (const auto& [name, answer, error] : presetCases) {
    SCOPED_TRACE(name);
    AgentDouble agent(sendInPieces(answer, 100'000));
    agent.adopt();
    const std::string events = eventsOf(sendMessage({{"preset", ""}}));
    const std::string wanted = unnamed + R"(agentDone ["r",false,")" + error;
    EXPECT_EQ(events.substr(0, wanted.size()), wanted);
    EXPECT_TRUE(agent.requests("POST ").empty());
  }
}

TEST(Turn, EndsBeforeItBeginsForATextOfAnotherType) {
  for (const char* const key : {"prompt", "preset", "chat_session_id"}) {
    EXPECT_EQ(eventsOf(sendMessage({{key, 5}})), ended(wrongType));
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

std::string preset(const std::string& id, const std::string& name, bool isDefault) {
  return json{{"id", id}, {"name", name}, {"is_default", isDefault}, {"isDefault", isDefault}}
      .dump();
}

const std::tuple<const char*, const char*, std::string, const char*> listCases[] = {
    {"no object", "[]", "[]", ""},
    {"no data", "{}", "[]", ""},
    {"data that is no array", R"({"data":{"id":"a"}})", "[]", ""},
    {"no default: the first", R"({"data":[{"id":"a"},{"id":"b"}]})",
     "[" + preset("a", "a", false) + "," + preset("b", "b", false) + "]", "a"},
    {"the default", R"({"data":[{"id":"a"},{"id":"b","morva_is_default":true}]})",
     "[" + preset("a", "a", false) + "," + preset("b", "b", true) + "]", "b"},
    {"the first of two defaults",
     R"({"data":[{"id":"a","morva_is_default":true},{"id":"b","morva_is_default":true}]})",
     "[" + preset("a", "a", true) + "," + preset("b", "b", true) + "]", "a"},
    {"a preset's own id", R"({"data":[{"id":"a","morva_preset_id":"p","morva_is_default":false}]})",
     "[" + preset("p", "a", false) + "]", "p"},
    {"others are passed over",
     R"({"data":[5,null,"x",[],{},{"id":""},{"id":null},{"id":5},{"id":"a"}]})",
     "[" + preset("a", "a", false) + "]", "a"},
    {"wrong types count as missing",
     R"({"data":[{"id":"a","morva_preset_id":5,"morva_is_default":"true"}]})",
     "[" + preset("a", "a", false) + "]", "a"},
};

TEST(PresetList, IsNormalizedAndHasADefault) {
  for (const auto& [name, models, presets, chosen] : listCases) {
    SCOPED_TRACE(name);
    const json list = normalizePresetList(json::parse(models));
    EXPECT_EQ(list.dump(), presets);
    EXPECT_EQ(defaultPresetId(list), chosen);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
