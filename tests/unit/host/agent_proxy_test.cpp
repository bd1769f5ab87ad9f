#include "host/agent_proxy.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/agent_double.h"
#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct MethodCase {
  const char* request;
  const char* line;  // how the agent's request begins
  const char* body;
};

const MethodCase methodCases[] = {
    {R"({"method":"getCreditInfo"})", "GET /v1/credit HTTP/1.1\r\n", ""},
    {R"({"method":"listChatSessions"})", "GET /v1/chat/sessions HTTP/1.1\r\n", ""},
    {R"({"method":"loadChatSession","id":"a&b"})", "GET /v1/chat/session?id=a&b HTTP/1.1\r\n", ""},
    {R"({"method":"loadChatSession","id":"a\r\nX: 1"})",
     "GET /v1/chat/session?id=a%0D%0AX:%201 HTTP/1.1\r\n", ""},
    {R"({"method":"deleteChatSession","id":"5"})", "DELETE /v1/chat/session?id=5 HTTP/1.1\r\n", ""},
    {R"({"method":"saveChatSession","session":{"b":1,"a":2}})",
     "POST /v1/chat/sessions HTTP/1.1\r\n", R"({"a":2,"b":1})"},
    {R"({"method":"saveChatSession"})", "POST /v1/chat/sessions HTTP/1.1\r\n", "null"},
    {R"({"method":"chatSkillsList","cwd":"C:\\Work Dir"})",
     "GET /v1/chat/skills?cwd=C%3A%5CWork%20Dir HTTP/1.1\r\n", ""},
    {R"({"method":"searchStart","query":"q","headLimit":5,"inputs":{},"user":{"scopes":[1]}})",
     "POST /v1/chat/search-names HTTP/1.1\r\n", R"({"headLimit":5,"query":"q","scopes":[1]})"},
    {R"({"method":"rankPageModel","query":"q","model":[],"topK":1.5})",
     "POST /v1/browser/page-model/rank HTTP/1.1\r\n", R"({"query":"q","topK":1.5})"},
    {R"({"method":"vumboArtifactsGet","limit":0})", "GET /v1/chat/vumbo-artifacts HTTP/1.1\r\n",
     ""},
    {R"({"method":"vumboArtifactsGet","limit":1})",
     "GET /v1/chat/vumbo-artifacts?limit=1 HTTP/1.1\r\n", ""},
};

TEST(ProviderRpc, MakesEachMethodsRequest) {
  CapturedOutput output;
  for (const MethodCase& c : methodCases) {
    SCOPED_TRACE(c.request);
    AgentDouble agent(
        [](ServedConnection& connection) { answerWith(connection, R"({"ok":true,"data":[7]})"); });
    agent.adopt();
    json request = json::parse(c.request);
    request["rpcId"] = 3;
    const json reply = answerProviderRpc(request);
    EXPECT_EQ(reply.at("ok"), true);
    EXPECT_EQ(reply.at("data").dump(), "[7]");
    EXPECT_EQ(reply.at("rpcId"), 3);
    EXPECT_EQ(reply.contains("id"), request.contains("id"));
    const auto requests = agent.requests(c.line);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(bodyOf(requests[0]), c.body);
  }
}

TEST(ProviderRpc, AnswersWhatNeedsNoAgent) {
  EXPECT_EQ(answerProviderRpc({{"method", "searchCancel"}}).dump(),
            R"({"data":{},"kind":"hostProviderRpc","ok":true,"source":"morva-chat"})");
  EXPECT_EQ(answerProviderRpc({{"method", "searchCancelAll"}}).at("ok"), true);
  EXPECT_EQ(answerProviderRpc({{"method", "foo"}, {"id", 5}}).dump(),
            R"({"error":"chrome host does not handle foo","id":5,)"
            R"("kind":"hostProviderRpc","ok":false,"source":"morva-chat"})");
  EXPECT_EQ(answerProviderRpc(json::object()).at("error"), "chrome host does not handle ");
}

TEST(ProviderRpc, ThrowsForArgumentsOfAnotherType) {
  EXPECT_THROW((void)answerProviderRpc({{"method", 5}}), json::type_error);
  EXPECT_THROW((void)answerProviderRpc({{"method", "loadChatSession"}, {"id", 5}}),
               json::type_error);
  EXPECT_THROW((void)answerProviderRpc({{"method", "vumboArtifactsGet"}, {"limit", "5"}}),
               json::type_error);
}

TEST(PlainKinds, PostAndAnswerWithAnAck) {
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) {
    const bool opens = connection.request.starts_with("POST /v1/ui/open ");
    answerWith(connection, opens ? R"({"ok":false})" : R"({"ok":true})");
  });
  agent.adopt();
  EXPECT_EQ(openPaths({{"path", "a"}}, true).dump(),
            R"({"kind":"ack","ok":true,"source":"morva-chat"})");
  EXPECT_EQ(bodyOf(agent.requests("POST /v1/ui/open-file").at(0)),
            R"({"fullscreen":true,"paths":["a"]})");
  EXPECT_EQ(openSettings(json::object()).at("error"), "settings did not open");
  EXPECT_EQ(bodyOf(agent.requests("POST /v1/ui/open ").at(0)), R"({"section":"chat"})");
  EXPECT_EQ(replyConsent({{"kind", "consentReply"}, {"id", "c"}}).at("ok"), true);
  EXPECT_EQ(bodyOf(agent.requests("POST /v1/chat/consent").at(0)), R"({"id":"c"})");
}

}  // namespace
}  // namespace media::win::chrome_inspect
