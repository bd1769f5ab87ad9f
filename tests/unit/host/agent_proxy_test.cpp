#include "host/agent_proxy.h"

#include "host/dispatcher.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/json_replies.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// A call, how the agent's request begins, and its body.
const std::tuple<const char*, const char*, const char*> methodCases[] = {
    {R"({"method":"getCreditInfo"})", "GET /v1/credit HTTP/1.1\r\n", ""},
    {R"({"method":"listChatSessions"})", "GET /v1/chat/sessions HTTP/1.1\r\n", ""},
    {R"({"method":"chatCommandsList"})", "GET /v1/chat/commands HTTP/1.1\r\n", ""},
    {R"({"method":"homeRecentPathsGet"})", "GET /v1/chat/recent-paths HTTP/1.1\r\n", ""},
    {R"({"method":"typeaheadPresetsGet"})", "GET /v1/chat/typeahead-presets HTTP/1.1\r\n", ""},
    {R"({"method":"loadChatSession","id":"a&b\r\nX: 1"})",
     "GET /v1/chat/session?id=a&b%0D%0AX:%201 HTTP/1.1\r\n", ""},
    {R"({"method":"deleteChatSession","id":"5"})", "DELETE /v1/chat/session?id=5 HTTP/1.1\r\n", ""},
    {R"({"method":"saveChatSession","session":{"b":1,"a":2}})",
     "POST /v1/chat/sessions HTTP/1.1\r\n", R"({"a":2,"b":1})"},
    {R"({"method":"saveChatSession"})", "POST /v1/chat/sessions HTTP/1.1\r\n", "null"},
    {R"({"method":"saveChatSession","session":["\u00fc",null]})",
     "POST /v1/chat/sessions HTTP/1.1\r\n", "[\"\xC3\xBC\",null]"},
    {R"({"method":"chatSkillsList"})", "GET /v1/chat/skills HTTP/1.1\r\n", ""},
    {R"({"method":"chatSkillsList","cwd":"C:\\Work Dir"})",
     "GET /v1/chat/skills?cwd=C%3A%5CWork%20Dir HTTP/1.1\r\n", ""},
    {R"({"method":"searchStart","query":"q","headLimit":5,"inputs":{},"user":{"scopes":[1]}})",
     "POST /v1/chat/search-names HTTP/1.1\r\n", R"({"headLimit":5,"query":"q","scopes":[1]})"},
    {R"({"method":"searchStart","query":"q","headLimit":20,"inputs":[{"path":"/a"}],"user":[1]})",
     "POST /v1/chat/search-names HTTP/1.1\r\n",
     R"({"headLimit":20,"inputs":[{"path":"/a"}],"query":"q"})"},
    {R"({"method":"searchStart"})", "POST /v1/chat/search-names HTTP/1.1\r\n",
     R"({"headLimit":0,"query":""})"},
    {R"({"method":"rankPageModel","query":5,"model":{"a":1},"topK":"5"})",
     "POST /v1/browser/page-model/rank HTTP/1.1\r\n", R"({"model":{"a":1}})"},
    {R"({"method":"rankPageModel","query":"q","model":[],"topK":1.5})",
     "POST /v1/browser/page-model/rank HTTP/1.1\r\n", R"({"query":"q","topK":1.5})"},
    {R"({"method":"vumboArtifactsGet","limit":0})", "GET /v1/chat/vumbo-artifacts HTTP/1.1\r\n",
     ""},
    {R"({"method":"vumboArtifactsGet","limit":1})",
     "GET /v1/chat/vumbo-artifacts?limit=1 HTTP/1.1\r\n", ""},
};

TEST(ProviderRpc, MakesEachMethodsRequest) {
  CapturedOutput output;
  for (const auto& [call, line, body] : methodCases) {
    SCOPED_TRACE(call);
    AgentDouble agent(
        [](ServedConnection& connection) { answerWith(connection, R"({"ok":true,"data":[7]})"); });
    agent.adopt();
    json request = json::parse(call);
    request["rpcId"] = 3;
    const json reply = replyOf(answerProviderRpc, request);
    EXPECT_EQ(reply.at("data").dump(), "[7]");
    EXPECT_EQ(reply.at("rpcId"), 3);
    EXPECT_EQ(reply.contains("id"), request.contains("id"));
    const auto requests = agent.requests(line);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(bodyOf(requests[0]), body);
  }
}

// An agent that answers whatever `current` says.
AgentDouble::Script answersWith(const std::atomic<const std::string*>& current) {
  return [&current](ServedConnection& connection) { (void)connection.send(*current); };
}

// An answer that breaks off behind `body`.
std::string torn(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + body;
}

// An answer of the agent, and what is replied.
const std::pair<std::string, const char*> answerCases[] = {
    {answerText(R"({"ok":true,"data":{"x":1}})"), R"({"ok":true,"data":{"x":1}})"},
    {answerText(R"({"ok":true})"), R"({"ok":true,"data":{}})"},
    {answerText(R"({"ok":false,"error":"busy"})"), R"({"ok":false,"error":"busy"})"},
    {answerText(R"({"ok":true,"error":"e"})", "500 No"),
     R"({"ok":false,"error":"agent request failed"})"},
    {torn(R"({"ok":true,"data":{}})"), R"({"ok":false,"error":"agent response truncated"})"},
    {"", R"({"ok":false,"error":"agent request failed"})"},
};

TEST(ProviderRpc, RelaysTheAgentsAnswer) {
  CapturedOutput output;
  std::atomic<const std::string*> current = nullptr;
  AgentDouble agent(answersWith(current));
  agent.adopt();
  for (const auto& [answer, reply] : answerCases) {
    current = &answer;
    json wanted = json::parse(reply);
    wanted.update({{"kind", "hostProviderRpc"}, {"id", 5}});
    EXPECT_EQ(replyOf(answerProviderRpc, {{"method", "getCreditInfo"}, {"id", 5}}), wanted)
        << answer;
  }
}

TEST(ProviderRpc, MakesPresetsOfTheModelList) {
  const std::string list = answerText(R"({"data":[{"id":"a"}]})");
  const std::string none[] = {answerText(R"({"data":[]})", "500 No"), answerText("{"),
                              torn(R"({"data":[{"id":"a"}]})"), ""};
  CapturedOutput output;
  std::atomic<const std::string*> current = nullptr;
  AgentDouble agent(answersWith(current));
  agent.adopt();
  for (const char* const method : {"getChatPresets", "settingsChatPresetsGet"}) {
    current = &list;
    EXPECT_EQ(replyOf(answerProviderRpc, {{"method", method}}).at("data").dump(),
              R"({"presets":[{"id":"a","isDefault":false,"is_default":false,"name":"a"}]})");
    for (const std::string& answer : none) {
      SCOPED_TRACE(answer);
      current = &answer;
      EXPECT_EQ(replyOf(answerProviderRpc, {{"method", method}}).at("error"), "preset list failed");
    }
  }
}

TEST(ProviderRpc, AnswersWhatNeedsNoAgent) {
  EXPECT_EQ(replyOf(answerProviderRpc, {{"method", "searchCancel"}}).dump(),
            R"({"data":{},"kind":"hostProviderRpc","ok":true})");
  EXPECT_EQ(replyOf(answerProviderRpc, {{"method", "searchCancelAll"}}).at("ok"), true);
  EXPECT_EQ(replyOf(answerProviderRpc, {{"method", "foo"}, {"id", 5}}).dump(),
            R"({"error":"chrome host does not handle foo","id":5,)"
            R"("kind":"hostProviderRpc","ok":false})");
  EXPECT_EQ(replyOf(answerProviderRpc, json::object()).at("error"), "chrome host does not handle ");
  const std::string name(5000, 'x');
  EXPECT_EQ(replyOf(answerProviderRpc, {{"method", name}}).at("error"),
            "chrome host does not handle " + name);
}

// A message, how the agent's request begins, its body, and the error without a better one of the
// agent's.
const std::tuple<const char*, const char*, const char*, const char*> plainCases[] = {
    {R"({"kind":"openPathInternal","path":"C:\\a b.txt"})", "POST /v1/ui/open-file ",
     R"({"fullscreen":false,"paths":["C:\\a b.txt"]})", "file did not open"},
    {R"({"kind":"openPathInternal","paths":["a",5],"path":"c"})", "POST /v1/ui/open-file ",
     R"({"fullscreen":false,"paths":["a",5]})", "file did not open"},
    {R"({"kind":"openPathFullscreen","path":"a"})", "POST /v1/ui/open-file ",
     R"({"fullscreen":true,"paths":["a"]})", "file did not open"},
    {R"({"kind":"openPathFullscreen","paths":"a"})", "POST /v1/ui/open-file ",
     R"({"fullscreen":true,"paths":[""]})", "file did not open"},
    {R"({"kind":"settings"})", "POST /v1/ui/open ", R"({"section":"chat"})",
     "settings did not open"},
    {R"({"kind":"settings","section":"voice"})", "POST /v1/ui/open ", R"({"section":"voice"})",
     "settings did not open"},
    {R"({"kind":"consentReply","id":"c","allow":true,"source":"morva-chat"})",
     "POST /v1/chat/consent ", R"({"allow":true,"id":"c","source":"morva-chat"})",
     "agent request failed"},
};

// An answer of the agent, and the error of the reply: "" for none, "own" for the kind's own.
const std::pair<std::string, std::string> verdictCases[] = {
    {answerText(R"({"ok":true})"), ""},
    {answerText(R"({"ok":false,"error":"no such thing"})"), "no such thing"},
    {answerText(R"({"ok":false})"), "own"},
    {answerText(R"({"ok":true,"error":"e"})", "500 No"), "e"},
    {torn(R"({"ok":true})"), "agent response truncated"},
    {"", "agent request failed"},
};

TEST(PlainKinds, PostAndAnswerWithTheAgentsVerdict) {
  CapturedOutput output;
  std::atomic<const std::string*> current = nullptr;
  for (const auto& [message, line, body, ownError] : plainCases) {
    AgentDouble agent(answersWith(current));
    agent.adopt();
    for (const auto& [answer, error] : verdictCases) {
      SCOPED_TRACE(message + answer);
      current = &answer;
      json wanted = {{"kind", "ack"}, {"ok", error.empty()}};
      if (!error.empty()) wanted["error"] = error == "own" ? ownError : error;
      EXPECT_EQ(replyOf(handleMessage, json::parse(message)), wanted);
      EXPECT_EQ(bodyOf(agent.requests(line).back()), body);
    }
    EXPECT_EQ(agent.requests(line).size(), std::size(verdictCases));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
