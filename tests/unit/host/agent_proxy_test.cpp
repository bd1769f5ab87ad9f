#include "host/agent_proxy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "host/dispatcher.h"
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
    {R"({"method":"chatCommandsList"})", "GET /v1/chat/commands HTTP/1.1\r\n", ""},
    {R"({"method":"homeRecentPathsGet"})", "GET /v1/chat/recent-paths HTTP/1.1\r\n", ""},
    {R"({"method":"typeaheadPresetsGet"})", "GET /v1/chat/typeahead-presets HTTP/1.1\r\n", ""},
    {R"({"method":"loadChatSession"})", "GET /v1/chat/session?id= HTTP/1.1\r\n", ""},
    {R"({"method":"loadChatSession","id":"a&b"})", "GET /v1/chat/session?id=a&b HTTP/1.1\r\n", ""},
    {R"({"method":"loadChatSession","id":"a\r\nX: 1"})",
     "GET /v1/chat/session?id=a%0D%0AX:%201 HTTP/1.1\r\n", ""},
    {R"({"method":"deleteChatSession","id":"5"})", "DELETE /v1/chat/session?id=5 HTTP/1.1\r\n", ""},
    {R"({"method":"saveChatSession","session":{"b":1,"a":2}})",
     "POST /v1/chat/sessions HTTP/1.1\r\n", R"({"a":2,"b":1})"},
    {R"({"method":"saveChatSession"})", "POST /v1/chat/sessions HTTP/1.1\r\n", "null"},
    {R"({"method":"saveChatSession","session":["\u00fc",null]})",
     "POST /v1/chat/sessions HTTP/1.1\r\n", "[\"\xC3\xBC\",null]"},
    {R"({"method":"chatSkillsList"})", "GET /v1/chat/skills HTTP/1.1\r\n", ""},
    {R"({"method":"chatSkillsList","cwd":""})", "GET /v1/chat/skills HTTP/1.1\r\n", ""},
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
    {R"({"method":"vumboArtifactsGet"})", "GET /v1/chat/vumbo-artifacts HTTP/1.1\r\n", ""},
    {R"({"method":"vumboArtifactsGet","limit":-1})", "GET /v1/chat/vumbo-artifacts HTTP/1.1\r\n",
     ""},
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

// An agent that answers whatever `current` says; without a status it hangs up.
struct Answer {
  const char* status;
  std::string body;
};

AgentDouble::Script answersWith(const std::atomic<const Answer*>& current) {
  return [&current](ServedConnection& connection) {
    const Answer& answer = *current;
    if (*answer.status != '\0') answerWith(connection, answer.body, answer.status);
  };
}

constexpr const char* failed = "agent request failed";

struct AnswerCase {
  Answer answer;
  const char* data;   // nullptr: not ok
  const char* error;  // then
};

const AnswerCase answerCases[] = {
    {{"200 OK", R"({"ok":true,"data":{"x":1}})"}, R"({"x":1})", ""},
    {{"200 OK", R"({"ok":true})"}, "{}", ""},
    {{"200 OK", R"({"ok":false,"error":"busy"})"}, nullptr, "busy"},
    {{"500 No", R"({"ok":true,"error":"e"})"}, nullptr, failed},
    {{"", ""}, nullptr, failed},
};

TEST(ProviderRpc, RelaysTheAgentsAnswer) {
  CapturedOutput output;
  std::atomic<const Answer*> current = nullptr;
  AgentDouble agent(answersWith(current));
  agent.adopt();
  for (const AnswerCase& c : answerCases) {
    SCOPED_TRACE(std::string(c.answer.status) + " " + c.answer.body.substr(0, 100));
    current = &c.answer;
    const json reply = answerProviderRpc({{"method", "getCreditInfo"}, {"id", 5}});
    EXPECT_EQ(reply.at("ok"), c.data != nullptr);
    EXPECT_EQ(reply.at("id"), 5);
    EXPECT_EQ(reply.contains("data"), c.data != nullptr);
    if (c.data != nullptr) {
      EXPECT_EQ(reply.at("data").dump(), c.data);
    } else {
      EXPECT_EQ(reply.at("error"), c.error);
    }
  }
}

TEST(ProviderRpc, MakesPresetsOfTheModelList) {
  CapturedOutput output;
  std::atomic<const Answer*> current = nullptr;
  AgentDouble agent(answersWith(current));
  agent.adopt();
  const Answer list = {"200 OK", R"({"data":[{"id":"a"}]})"};
  const Answer none[] = {{"500 No", R"({"data":[]})"}, {"200 OK", "{"}, {"", ""}};
  for (const char* const method : {"getChatPresets", "settingsChatPresetsGet"}) {
    current = &list;
    EXPECT_EQ(answerProviderRpc({{"method", method}}).at("data").dump(),
              R"({"presets":[{"id":"a","isDefault":false,"is_default":false,"name":"a"}]})");
    for (const Answer& answer : none) {
      SCOPED_TRACE(std::string(answer.status) + " " + answer.body);
      current = &answer;
      EXPECT_EQ(answerProviderRpc({{"method", method}}).at("error"), "preset list failed");
    }
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

struct PlainCase {
  const char* request;
  const char* line;
  const char* body;
  const char* error;  // without a better one of the agent's
};

const PlainCase plainCases[] = {
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
     "POST /v1/chat/consent ", R"({"allow":true,"id":"c","source":"morva-chat"})", failed},
};

struct VerdictCase {
  Answer answer;
  bool ok;
  const char* error;  // nullptr: the kind's own
};

const VerdictCase verdictCases[] = {
    {{"200 OK", R"({"ok":true})"}, true, ""},
    {{"200 OK", R"({"ok":false,"error":"no such thing"})"}, false, "no such thing"},
    {{"200 OK", R"({"ok":false})"}, false, nullptr},
    {{"200 OK", ""}, false, nullptr},
    {{"200 OK", "{"}, false, nullptr},
    {{"500 No", R"({"ok":true})"}, false, nullptr},
    {{"500 No", R"({"ok":false,"error":"e"})"}, false, "e"},
    {{"", ""}, false, nullptr},
};

TEST(PlainKinds, PostAndAnswerWithTheAgentsVerdict) {
  CapturedOutput output;
  std::atomic<const Answer*> current = nullptr;
  for (const PlainCase& c : plainCases) {
    AgentDouble agent(answersWith(current));
    agent.adopt();
    for (const VerdictCase& verdict : verdictCases) {
      SCOPED_TRACE(std::string(c.request) + verdict.answer.status + " " + verdict.answer.body);
      current = &verdict.answer;
      const json reply = handleMessage(json::parse(c.request));
      json wanted = {{"kind", "ack"}, {"ok", verdict.ok}, {"source", "morva-chat"}};
      if (!verdict.ok) wanted["error"] = verdict.error != nullptr ? verdict.error : c.error;
      EXPECT_EQ(reply.dump(), wanted.dump());
      EXPECT_EQ(bodyOf(agent.requests(c.line).back()), c.body);
    }
    EXPECT_EQ(agent.requests(c.line).size(), std::size(verdictCases));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
