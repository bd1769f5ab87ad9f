#include "host/command_run.h"

#include "chat/events_pump.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct RunCase {
  std::string answer;  // empty: hangs up
  const char* data;    // nullptr: not ok
  const char* error;   // then
};

constexpr const char* failed = "commandRun failed";
constexpr const char* leftToTheApplication = "morva is not running";

const RunCase runCases[] = {
    {answerText(R"({"ok":true,"data":{"a":1}})"), R"({"a":1})", ""},
    {answerText(R"({"ok":true})"), "{}", ""},
    {answerText(R"({"ok":false,"error":"no"})"), nullptr, "no"},
    {answerText(R"({"ok":false,"error":5})"), nullptr, failed},
    {answerText("[]"), nullptr, failed},
    {answerText("null"), nullptr, failed},
    {answerText(R"({"ok":false,"needsUi":false})"), nullptr, failed},
    {answerText(R"({"ok":true})", "500 No"), nullptr, failed},
    {answerText(R"({"error":"boom"})", "500 No"), nullptr, "boom"},
    {answerText(R"({"ok":true})", "404 Not Found"), nullptr, leftToTheApplication},
    {answerText(R"({"ok":false,"needsUi":true})"), nullptr, leftToTheApplication},
    {answerText(R"({"needsUi":true,"error":"e"})", "503 No"), nullptr, leftToTheApplication},
    {answerText("{"), nullptr, leftToTheApplication},
    {answerText(""), nullptr, leftToTheApplication},
    {answerText("<html>", "500 No"), nullptr, leftToTheApplication},
    // It may have run.
    {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"ok\":true}", nullptr,
     "agent response truncated"},
    {"", nullptr, "agent request failed"},
};

TEST(CommandRun, LeavesToTheApplicationWhatTheAgentCannotDo) {
  const TestFolder appData;  // no application announces itself here
  const EnvironmentVariable variable("APPDATA", appData.path().string());
  CapturedOutput output;
  std::atomic<const RunCase*> current = nullptr;
  AgentDouble agent(
      [&current](ServedConnection& connection) { (void)connection.send(current.load()->answer); });
  agent.adopt();
  for (const RunCase& c : runCases) {
    SCOPED_TRACE(c.answer);
    current = &c;
    json wanted = {{"kind", "hostProviderRpc"}, {"ok", c.data != nullptr}, {"id", "x"}};
    wanted["source"] = "morva-chat";
    if (c.data != nullptr) wanted["data"] = json::parse(c.data);
    if (c.data == nullptr) wanted["error"] = c.error;
    EXPECT_EQ(answerCommandRun({{"id", "x"}}), wanted);
  }
  EXPECT_EQ(agent.requests("POST /v1/chat/commands/run").size(), std::size(runCases));
}

TEST(CommandRun, AddsTheSender) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, R"({"ok":true})"); });
  agent.adopt();
  (void)answerCommandRun({{"id", "x"}, {"sender", "mine"}});
  pointChatEvents("window", 0);
  (void)answerCommandRun({{"id", "x"}, {"sender", "mine"}});
  const auto requests = agent.requests("POST /v1/chat/commands/run");
  EXPECT_EQ(bodyOf(requests.at(0)), R"({"id":"x","sender":"mine"})");
  EXPECT_EQ(bodyOf(requests.at(1)), R"({"id":"x","sender":"window"})");
}

TEST(CommandRun, ThrowsForAnIdThatIsNoText) {
  EXPECT_THROW((void)answerCommandRun({{"id", 5}}), json::type_error);
}

}  // namespace
}  // namespace media::win::chrome_inspect
