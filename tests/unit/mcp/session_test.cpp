// What the server says to each message, message by message.
#include "mcp/session.h"

#include "browser_tools/tool_catalog.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// A session and what came out of it.
class Talk {
 public:
  explicit Talk(const char* revision = nullptr) {
    if (revision == nullptr) return;
    say(R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":")"s +
        revision + R"("}})");
    sent.clear();
  }

  // What is sent at once in answer to a line, one message a line.
  std::string say(const std::string& line) {
    sent.clear();
    session.take(line);
    return sent;
  }

  std::string sent;
  std::deque<ToolCall> calls;
  std::vector<std::string> cancelled;
  Session session{{[this](const std::string& message) { sent += message + "\n"; },
                   [this](ToolCall call) { calls.push_back(std::move(call)); },
                   [this](const std::string& id) { cancelled.push_back(id); }}};
};

std::string request(const std::string& method, const std::string& params = "") {
  return R"({"jsonrpc":"2.0","id":7,"method":")" + method + "\"" +
         (params.empty() ? "" : ",\"params\":" + params) + "}";
}

std::string failure(const std::string& id, int code, const std::string& text) {
  return R"({"jsonrpc":"2.0",)" + (id.empty() ? "" : "\"id\":" + id + ",") + R"("error":{"code":)" +
         std::to_string(code) + R"(,"message":")" + text + "\"}}\n";
}

constexpr const char* empty = "{\"jsonrpc\":\"2.0\",\"id\":7,\"result\":{}}\n";
constexpr const char* newest = "2025-11-25";

TEST(Session, NegotiatesTheRevision) {
  for (const char* revision :
       {"2025-11-25", "2025-06-18", "2025-03-26", "2024-11-05", "1999-01-01", "", "2026-07-28"}) {
    Talk talk;
    const json reply = json::parse(
        talk.say(request("initialize", R"({"protocolVersion":")"s + revision +
                                           R"(","capabilities":{},"clientInfo":{"name":"c"}})")));
    const bool isKnown = std::string_view(revision).starts_with("202") && revision < "2026"s;
    const json& result = reply.at("result");
    EXPECT_EQ(result.at("protocolVersion"), isKnown ? revision : newest);
    EXPECT_EQ(result.at("capabilities"), json::parse(R"({"logging":{},"tools":{}})"));
    EXPECT_EQ(result.at("serverInfo").at("name"), "morva-chrome-host");
    EXPECT_THAT(result.at("instructions").get<std::string>(), testing::HasSubstr("untrusted"));
    EXPECT_EQ(talk.say(request("initialize", R"({"protocolVersion":"2025-06-18"})")),
              failure("7", -32600, "the session is initialized already"));
  }
}

const std::pair<std::string, std::string> earlyCases[] = {
    {request("ping"), empty},
    {request("tools/list"), failure("7", -32600, "the session is not initialized")},
    {request("no/such"), failure("7", -32600, "the session is not initialized")},
    {request("initialize"), failure("7", -32602, "protocolVersion is no text")},
    {request("initialize", R"({"protocolVersion":1})"),
     failure("7", -32602, "protocolVersion is no text")},
    {request("initialize", "[]"), failure("7", -32602, "the params are no object")},
    {"[]", failure("", -32600, "batches are not part of this revision")},
    {R"({"jsonrpc":"2.0","method":"notifications/initialized"})", ""},
};

TEST(Session, TakesPingAndInitializeFirst) {
  for (const auto& [line, wanted] : earlyCases) EXPECT_EQ(Talk().say(line), wanted) << line;
}

const std::pair<std::string, std::string> messageCases[] = {
    {request("ping"), empty},
    {request("ping", "{}"), empty},
    {request("ping", "null"), failure("7", -32602, "the params are no object")},
    {request("prompts/list"), failure("7", -32601, "no method \\\"prompts/list\\\"")},
    {request("tools/list", R"({"cursor":"x"})"),
     failure("7", -32602, "no such cursor: all tools are on one page")},
    {request("tools/call"), failure("7", -32602, "the name is no text")},
    {request("tools/call", R"({"name":5})"), failure("7", -32602, "the name is no text")},
    {request("tools/call", R"({"name":"shell"})"), failure("7", -32602, "no tool \\\"shell\\\"")},
    {request("tools/call", R"({"name":"browser_read","arguments":[]})"),
     failure("7", -32602, "the arguments are no object")},
    {request("tools/call", R"({"name":"browser_read","arguments":null})"),
     failure("7", -32602, "the arguments are no object")},
    {request("tools/call", R"({"name":"browser_read","_meta":{"progressToken":{}}})"),
     failure("7", -32602, "the progressToken is neither a text nor a number")},
    {request("logging/setLevel", R"({"level":"warning"})"), empty},
    {request("logging/setLevel", R"({"level":"loud"})"), failure("7", -32602, "no such level")},
    {request("logging/setLevel"), failure("7", -32602, "no such level")},
    // Ids come back as they were.
    {R"({"jsonrpc":"2.0","id":"\u20ac\"","method":"ping"})",
     "{\"jsonrpc\":\"2.0\",\"id\":\"\xE2\x82\xAC\\\"\",\"result\":{}}\n"},
    {R"({"jsonrpc":"2.0","id":-12345678901234567,"method":"ping"})",
     "{\"jsonrpc\":\"2.0\",\"id\":-12345678901234567,\"result\":{}}\n"},
    {R"({"jsonrpc":"2.0","id":null,"method":"ping"})",
     failure("", -32600, "the id is neither a text nor a number")},
    {R"({"jsonrpc":"2.0","id":{},"method":"ping"})",
     failure("", -32600, "the id is neither a text nor a number")},
    // No messages.
    {R"({"id":7,"method":"ping"})", failure("7", -32600, "no JSON-RPC 2.0")},
    {R"({"jsonrpc":"1.0","id":7,"method":"ping"})", failure("7", -32600, "no JSON-RPC 2.0")},
    {R"({"jsonrpc":"2.0","id":7})", failure("7", -32600, "no method")},
    {R"({"jsonrpc":"2.0","id":7,"method":5})", failure("7", -32600, "no method")},
    {"null", failure("", -32600, "no JSON-RPC 2.0")},
    {"\"ping\"", failure("", -32600, "no JSON-RPC 2.0")},
    // Notifications, known or not, and replies to what was never asked.
    {R"({"jsonrpc":"2.0","method":"notifications/initialized"})", ""},
    {R"({"jsonrpc":"2.0","method":"tools/list"})", ""},
    {R"({"jsonrpc":"2.0","method":"notifications/cancelled"})", ""},
    {R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":[]}})", ""},
    {R"({"jsonrpc":"2.0","id":7,"result":{}})", ""},
    {R"({"jsonrpc":"2.0","id":7,"error":{"code":1,"message":"m"}})", ""},
    {"[" + request("ping") + "]", failure("", -32600, "batches are not part of this revision")},
};

TEST(Session, AnswersEachMessage) {
  for (const auto& [line, wanted] : messageCases) {
    Talk talk(newest);
    EXPECT_EQ(talk.say(line), wanted) << line;
    EXPECT_TRUE(talk.calls.empty() && talk.cancelled.empty()) << line;
  }
}

TEST(Session, AnswersWhatIsNoJsonWithoutAnId) {
  for (const std::string& line : {"{"s, "{\"a\":\xFF}"s, "x"s, repeat(1001, "[")}) {
    const json reply = json::parse(Talk(newest).say(line));
    EXPECT_EQ(reply.at("error").at("code"), -32700) << line;
    EXPECT_FALSE(reply.contains("id"));
  }
  Talk talk(newest);
  talk.session.refuseLongLine();
  EXPECT_EQ(talk.sent, failure("", -32700, "message too long"));
}

const std::pair<std::string, std::string> batchCases[] = {
    {"[]", failure("", -32600, "the batch is empty")},
    {"[" + request("ping") + ",1," + request("no") + R"(,{"jsonrpc":"2.0","method":"x"}])",
     R"([{"jsonrpc":"2.0","id":7,"result":{}},)"
     R"({"jsonrpc":"2.0","error":{"code":-32600,"message":"no JSON-RPC 2.0"}},)"
     R"({"jsonrpc":"2.0","id":7,"error":{"code":-32601,"message":"no method \"no\""}}])"
     "\n"},
    {R"([{"jsonrpc":"2.0","method":"notifications/initialized"}])", ""},
};

TEST(Session, AnswersBatchesInTheirOneRevision) {
  for (const auto& [line, wanted] : batchCases) EXPECT_EQ(Talk("2025-03-26").say(line), wanted);
  for (const char* other : {"2024-11-05", "2025-06-18"}) {
    EXPECT_EQ(Talk(other).say("[" + request("ping") + "]"),
              failure("", -32600, "batches are not part of this revision"));
  }
}

TEST(Session, SendsTheRepliesToABatchOnceItsCallsAreAnswered) {
  Talk talk("2025-03-26");
  const std::string call = request("tools/call", R"({"name":"browser_read"})");
  EXPECT_EQ(talk.say("[" + call + "," + request("ping") + "," + call + "]"), "");
  ASSERT_EQ(talk.calls.size(), 2U);
  talk.calls.front().replies->add("1");
  talk.calls.pop_front();  // answered
  EXPECT_EQ(talk.sent, "");
  talk.calls.pop_front();  // cancelled
  EXPECT_EQ(talk.sent, "[{\"jsonrpc\":\"2.0\",\"id\":7,\"result\":{}},1]\n");
}

TEST(Session, PassesOnCallsAndTheirEnd) {
  Talk talk(newest);
  EXPECT_EQ(talk.say(request("tools/call", R"({"name":"browser_find","arguments":{"query":"a"},
                                              "_meta":{"progressToken":"p"}})")),
            "");
  EXPECT_EQ(
      talk.say(request("tools/call", R"({"name":"browser_read","_meta":{"progressToken":null}})")),
      "");
  ASSERT_EQ(talk.calls.size(), 2U);
  EXPECT_EQ(talk.calls[0].name, "browser_find");
  EXPECT_EQ(talk.calls[0].arguments, json({{"query", "a"}}));
  EXPECT_EQ(talk.calls[0].id, "7");
  EXPECT_EQ(talk.calls[0].progressToken, "\"p\"");
  EXPECT_EQ(talk.calls[1].arguments, json::object());
  EXPECT_EQ(talk.calls[1].progressToken, "");
  for (const char* id : {"7", "\"seven\""}) {
    talk.say(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":)"s + id +
             "}}");
  }
  EXPECT_EQ(talk.cancelled, (std::vector<std::string>{"7", "\"seven\""}));
}

TEST(Session, ReportsToAClientThatAsksForIt) {
  Talk talk(newest);
  talk.session.log(LogLevel::emergency, "unasked");
  talk.say(request("logging/setLevel", R"({"level":"warning"})"));
  talk.sent.clear();
  talk.session.log(LogLevel::notice, "too quiet");
  talk.session.log(LogLevel::warning, "heard");
  EXPECT_EQ(talk.sent,
            "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/message\",\"params\":{\"level\":"
            "\"warning\",\"logger\":\"morva-chrome-host\",\"data\":\"heard\"}}\n");
}

TEST(Session, DescribesTheToolsOfTheCatalogue) {
  const json list = json::parse(Talk(newest).say(request("tools/list")));
  const json catalogue = agentToolCatalog();
  ASSERT_EQ(list.at("result").at("tools").size(), catalogue.at("tools").size());
  std::string hints;
  for (std::size_t i = 0; i < catalogue.at("tools").size(); ++i) {
    const json& tool = list.at("result").at("tools").at(i);
    const json& entry = catalogue.at("tools").at(i);
    const json& schema = tool.at("inputSchema");
    EXPECT_EQ(tool.at("name"), entry.at("name"));
    EXPECT_EQ(tool.at("description"), entry.at("description"));
    EXPECT_EQ(tool.at("title"), tool.at("annotations").at("title"));
    EXPECT_FALSE(tool.contains("outputSchema"));
    EXPECT_EQ(schema.at("type"), "object");
    EXPECT_EQ(schema.at("additionalProperties"), true);
    EXPECT_EQ(schema.value("required", json::array()),
              tool.at("name") == "browser_batch" ? json::array({"steps"}) : json::array());
    EXPECT_EQ(tool.at("annotations").at("openWorldHint"), true);
    hints += tool.at("annotations").at("readOnlyHint") == true      ? 'r'
             : tool.at("annotations").at("destructiveHint") == true ? 'a'
                                                                    : 'p';
  }
  EXPECT_EQ(hints, "rrpaaaaa");
}

}  // namespace
}  // namespace media::win::chrome_inspect
