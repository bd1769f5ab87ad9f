#include "agent/agent_ready.h"

#include "platform/clock.h"
#include "support/loopback_socket.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct ReadyCase {
  const char* name;
  std::string answer;
  Readiness readiness;
};

const ReadyCase readyCases[] = {
    {"says nothing of it", answerText("{}"), Readiness::ready},
    {"ready", answerText(R"({"ready":true})"), Readiness::ready},
    {"not ready", answerText(R"({"ready":false})"), Readiness::notReady},
    {"ready is null", answerText(R"({"ready":null})"), Readiness::notReady},
    {"ready is a text", answerText(R"({"ready":"true"})"), Readiness::notReady},
    {"ready is a number", answerText(R"({"ready":1})"), Readiness::notReady},
    {"no object", answerText("[]"), Readiness::notReady},
    {"no JSON", answerText("ok"), Readiness::notReady},
    {"no body", answerText(""), Readiness::notReady},
    {"not UTF-8", answerText("{\"\xFF\":1}"), Readiness::notReady},
    {"nested too deeply", answerText(std::string(20'000, '[') + std::string(20'000, ']')),
     Readiness::notReady},
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
  for (const ReadyCase& c : readyCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(sendInPieces(c.answer, 100'000));
    EXPECT_EQ(askReadiness(server.port(), 15'000), c.readiness);
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
