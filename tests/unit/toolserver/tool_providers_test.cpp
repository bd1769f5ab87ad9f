#include "toolserver/tool_providers.h"

#include "channel/host_log.h"
#include "support/scripted_server.h"
#include "support/test_system.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* variable = "MORVA_CHROME_HOST_TOOL";

// The requests to an agent that answers with `answer`.
std::vector<std::string> requestsFor(const std::string& answer,
                                     const ToolServerAddress& browserTools = {}) {
  ScriptedServer agent(sendInPieces(answer, 1000));
  registerHostToolProviders(agent.port(), browserTools);
  return agent.requests();
}

std::vector<std::string> logLines() {
  std::vector<std::string> lines;
  for (const json& event : takeDebugLogEvents(maxQueuedLogLines)) {
    const json& line = event.at(0);
    lines.push_back(line.at("level").get<std::string>() + " " + line.at("text").get<std::string>());
  }
  return lines;
}

// `body`: nullptr: nothing is registered for it
const std::pair<std::string, const char*> variableCases[] = {
    {"dev=http://127.0.0.1:9/x?a=b", R"({"id":"dev","url":"http://127.0.0.1:9/x?a=b"})"},
    {"a==", R"({"id":"a","url":"="})"},
    {" =\xC3\xA9", "{\"id\":\" \",\"url\":\"\xC3\xA9\"}"},
    {"a=" + std::string(509, 'u'), ""},
    {"a=" + std::string(510, 'u'), nullptr},
    {"", nullptr},
    {"=u", nullptr},
    {"a=", nullptr},
    {"none", nullptr},
};

TEST(RegisterHostToolProviders, TakesOneFromTheEnvironment) {
  for (const auto& [value, body] : variableCases) {
    SCOPED_TRACE(value);
    setEnvironment(variable, value);
    const std::vector<std::string> requests = requestsFor(answerText("{}"));
    ASSERT_EQ(requests.size(), body == nullptr ? 0U : 1U);
    if (body == nullptr) continue;
    EXPECT_TRUE(requests[0].starts_with("POST /v1/host-tool-providers HTTP/1.1\r\n"));
    const json longest = {{"id", "a"}, {"url", std::string(509, 'u')}};
    EXPECT_EQ(bodyOf(requests[0]), *body == '\0' ? longest.dump() : body);
  }
  setEnvironment(variable, "");
}

TEST(RegisterHostToolProviders, LogsThatThereIsNoToolServer) {
  EXPECT_TRUE(requestsFor("", {"", "token"}).empty());
  EXPECT_EQ(logLines(), std::vector<std::string>{"trace chrome browser tools did not bind"});
}

const ToolServerAddress address = {"http://127.0.0.1:39270/api?secret=1?2", "0123abc"};

// What the agent answers does not matter. Each answer announces the end of its connection: Wine's
// client would send the next request on one that it takes for open, and lose it there.
TEST(RegisterHostToolProviders, RegistersTheBrowserToolsBehindThatOfTheEnvironment) {
  setEnvironment(variable, "dev=u");
  for (const std::string& answer : {answerText("{}"), answerText("", "500 No"), "rubbish"s}) {
    const std::vector<std::string> requests = requestsFor(answer, address);
    ASSERT_EQ(requests.size(), 2U) << answer;
    EXPECT_EQ(bodyOf(requests[0]), R"({"id":"dev","url":"u"})");
    EXPECT_EQ(bodyOf(requests[1]),
              R"({"id":"chrome","token":"0123abc","url":"http://127.0.0.1:39270/api?secret=1?2"})");
    EXPECT_EQ(logLines(),
              std::vector<std::string>{"trace chrome browser tools http://127.0.0.1:39270/api"});
  }
  setEnvironment(variable, "");
}

}  // namespace
}  // namespace media::win::chrome_inspect
