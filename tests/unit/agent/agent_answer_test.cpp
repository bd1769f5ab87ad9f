#include "agent/agent_answer.h"

#include "agent/agent_ready.h"
#include "platform/clock.h"
#include "support/loopback_socket.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// The answer, whether it is JSON, and its error when it is not ok.
const std::tuple<AgentResponse, bool, const char*> answerCases[] = {
    {{200, R"({"ok":true,"error":"x"})", ""}, true, nullptr},
    {{200, R"({"ok":false,"error":"no"})", ""}, true, "no"},
    {{200, R"({"ok":false,"error":""})", ""}, true, ""},
    {{200, "{}", ""}, true, "fallback"},
    {{200, R"({"error":5})", ""}, true, "fallback"},
    {{200, R"({"ok":"true"})", ""}, true, "fallback"},
    {{200, "[true]", ""}, true, "fallback"},
    {{200, "", ""}, true, "fallback"},
    {{200, "{", ""}, false, "fallback"},
    {{500, R"({"ok":true,"error":"x"})", ""}, true, "fallback"},
    {{0, "", "agent request failed"}, false, "agent request failed"},
    {{200, R"({"ok":true})", "broke"}, false, "broke"},
    {{500, R"({"error":"x"})", "broke"}, false, "broke"},
};

TEST(ReadAnswer, JudgesStatusAndBody) {
  for (const auto& [response, isJson, error] : answerCases) {
    SCOPED_TRACE(response.body);
    const AgentAnswer answer = readAnswer(response, "fallback");
    EXPECT_EQ(answer.ok, error == nullptr);
    EXPECT_EQ(answer.error, error == nullptr ? "" : error);
    EXPECT_EQ(answer.isJson, isJson);
  }
  for (const std::uint32_t status : {199U, 200U, 204U, 299U, 300U}) {
    const AgentResponse response = {status, R"({"ok":true})", ""};
    EXPECT_EQ(readAnswer(response, "").ok, status == 200);
    EXPECT_EQ(readAnswer(response, "", GoodStatus::any2xx).ok, status >= 200 && status < 300);
  }
}

TEST(ExplainedError, IsTheBodysWithAnyStatusOfAWholeAnswer) {
  EXPECT_EQ(explainedError(readAnswer({500, R"({"error":"x"})", ""}, "fallback")), "x");
  EXPECT_EQ(explainedError(readAnswer({500, "<html>", ""}, "fallback")), "fallback");
  EXPECT_EQ(explainedError(readAnswer({500, R"({"error":"x"})", "broke"}, "fallback")), "broke");
}

TEST(ParseAnswer, TakesNoBodyForAnEmptyObject) {
  json value = 5;
  EXPECT_FALSE(parseAnswer({200, "{", ""}, value));
  EXPECT_EQ(value, 5);
  EXPECT_TRUE(parseAnswer({200, "", ""}, value));
  EXPECT_EQ(value, json::object());
  EXPECT_TRUE(parseAnswer({500, "[1]", "agent response truncated"}, value));
  EXPECT_EQ(value, json::array({1}));
}

TEST(IsWholeAnswer, NeedsStatus200AndNoError) {
  EXPECT_TRUE(isWholeAnswer({200, "", ""}));
  EXPECT_FALSE(isWholeAnswer({201, "", ""}));
  EXPECT_FALSE(isWholeAnswer({200, "{}", "agent response truncated"}));
}

TEST(DataText, IsAnEmptyObjectWithoutData) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"ok":true,"data":[7]})", "[7]"}, {R"({"data":null})", "null"}, {R"({"ok":true})", "{}"}};
  for (const auto& [body, data] : rows) EXPECT_EQ(dataText(readAnswer({200, body, ""}, "")), data);
}

const std::tuple<const char*, std::string, Readiness> readyCases[] = {
    {"says nothing of it", answerText("{}"), Readiness::ready},
    {"ready", answerText(R"({"ready":true})"), Readiness::ready},
    {"not ready", answerText(R"({"ready":false})"), Readiness::notReady},
    {"ready is null", answerText(R"({"ready":null})"), Readiness::notReady},
    {"ready is a text", answerText(R"({"ready":"true"})"), Readiness::notReady},
    {"no object", answerText("[]"), Readiness::notReady},
    {"no JSON", answerText("ok"), Readiness::notReady},
    {"no body", answerText(""), Readiness::notReady},
    {"broken off", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{}", Readiness::notReady},
    {"a body at the limit", answerText("{}" + std::string(65'534, ' ')), Readiness::ready},
    {"a longer one", std::string(streamHead) + "{}" + std::string(200'000, ' '),
     Readiness::notReady},
    {"another status", answerText(R"({"ready":true})", "503 Busy"), Readiness::foreign},
    {"a redirect", "HTTP/1.1 302 A\r\nLocation: /ready2\r\nContent-Length: 0\r\n\r\n",
     Readiness::foreign},
    {"another good status", answerText("", "204 None"), Readiness::foreign},
    {"no answer", "", Readiness::none},
};

TEST(AskReadiness, DistinguishesAnAgentFromOthers) {
  for (const auto& [name, answer, readiness] : readyCases) {
    SCOPED_TRACE(name);
    ScriptedServer server(sendInPieces(answer, 100'000));
    EXPECT_EQ(askReadiness(server.port(), 15'000), readiness);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_TRUE(requests[0].starts_with("GET /ready HTTP/1.1\r\n"));
  }
  EXPECT_EQ(askReadiness(portWithoutListener(), 15'000), Readiness::none);
}

TEST(AskReadiness, GivesUpOnAMuteOne) {
  Gate ended;
  ScriptedServer server([&ended](ServedConnection&) { ended.wait(); });
  const std::uint64_t before = tickCountMs();
  EXPECT_EQ(askReadiness(server.port(), 300), Readiness::none);
  EXPECT_LT(tickCountMs() - before, 10'000U);
  ended.open();
}

}  // namespace
}  // namespace media::win::chrome_inspect
