#include "host/command_run.h"

#include "chat/events_pump.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/json_replies.h"
#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* failed = "commandRun failed";
constexpr const char* leftToTheApplication = "morva is not running";

// An answer of the agent, "" when it hangs up, and the error of the reply, "" for none.
const std::pair<std::string, std::string> runCases[] = {
    {answerText(R"({"ok":true,"data":{"a":1}})"), ""},
    {answerText(R"({"ok":false,"error":"no"})"), "no"},
    {answerText(R"({"ok":false,"error":5})"), failed},
    {answerText("[]"), failed},
    {answerText("null"), failed},
    {answerText(R"({"ok":false,"needsUi":false})"), failed},
    {answerText(R"({"ok":true})", "500 No"), failed},
    {answerText(R"({"error":"boom"})", "500 No"), "boom"},
    {answerText(R"({"ok":true})", "404 Not Found"), leftToTheApplication},
    {answerText(R"({"ok":false,"needsUi":true})"), leftToTheApplication},
    {answerText(R"({"needsUi":true,"error":"e"})", "503 No"), leftToTheApplication},
    {answerText("{"), leftToTheApplication},
    {answerText(""), leftToTheApplication},
    {answerText("<html>", "500 No"), leftToTheApplication},
    // It may have run.
    {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"ok\":true}", "agent response truncated"},
    {"", "agent request failed"},
};

TEST(CommandRun, LeavesToTheApplicationWhatTheAgentCannotDo) {
  const TestFolder appData;  // no application announces itself here
  const EnvironmentVariable variable("APPDATA", appData.path().string());
  CapturedOutput output;
  std::atomic<const std::string*> current = nullptr;
  AgentDouble agent([&current](ServedConnection& connection) { (void)connection.send(*current); });
  agent.adopt();
  for (const auto& [answer, error] : runCases) {
    current = &answer;
    json wanted = {{"kind", "hostProviderRpc"}, {"id", "x"}};
    wanted["ok"] = error.empty();
    if (error.empty()) wanted["data"] = {{"a", 1}};
    if (!error.empty()) wanted["error"] = error;
    EXPECT_EQ(replyOf(answerCommandRun, {{"id", "x"}}), wanted) << answer;
  }
  EXPECT_EQ(agent.requests("POST /v1/chat/commands/run").size(), std::size(runCases));
}

TEST(CommandRun, AddsTheSender) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, R"({"ok":true})"); });
  agent.adopt();
  (void)replyOf(answerCommandRun, {{"id", "x"}, {"sender", "mine"}});
  pointChatEvents("window", 0);
  (void)replyOf(answerCommandRun, {{"id", "x"}, {"sender", "mine"}});
  const auto requests = agent.requests("POST /v1/chat/commands/run");
  EXPECT_EQ(bodyOf(requests.at(0)), R"({"id":"x","sender":"mine"})");
  EXPECT_EQ(bodyOf(requests.at(1)), R"({"id":"x","sender":"window"})");
}

}  // namespace
}  // namespace media::win::chrome_inspect
