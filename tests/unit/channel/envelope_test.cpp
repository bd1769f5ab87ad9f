#include "channel/envelope.h"

#include "channel/framing.h"
#include "support/captured_output.h"
#include "support/json_replies.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::tuple<const char*, bool, bool> messageCases[] = {
    {R"({"source":"morva-chat"})", true, false},
    {R"({"source":"morva-chat","ok":true,"requestId":"r"})", true, true},
    {R"({"source":"morva-chat "})", false, false},
    {R"({"source":"Morva-chat"})", false, false},
    {R"({"source":null})", false, false},
    {R"({"source":["morva-chat"]})", false, false},
    {R"({"ok":true,"requestId":"r"})", false, true},
    {R"({"ok":null,"requestId":null})", false, true},
    {R"({"ok":true})", false, false},
    {R"({"requestId":"r"})", false, false},
    {R"(["source","ok","requestId"])", false, false},
    {"null", false, false},
};

TEST(Classify, KnowsPanelMessagesAndAnswers) {
  for (const auto& [text, panel, relay] : messageCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(isPanelMessage(documentOf(json::parse(text)).root()), panel);
    EXPECT_EQ(isRelayReply(documentOf(json::parse(text)).root()), relay);
  }
}

const json request = {{"chromeRequestId", {1, "a"}}};

TEST(StampMessage, SetsSourceAndToken) {
  EXPECT_EQ(stampMessage({{"kind", "k"}, {"source", "x"}, {"chromeRequestId", 9}}, request).dump(),
            R"({"chromeRequestId":[1,"a"],"kind":"k","source":"morva-chat"})");
  EXPECT_EQ(stampMessage({{"chromeRequestId", 9}}, 5).dump(),
            R"({"chromeRequestId":9,"source":"morva-chat"})");
  EXPECT_EQ(stampMessage(json::object(), {{"chromeRequestId", nullptr}}).dump(),
            R"({"chromeRequestId":null,"source":"morva-chat"})");
}

TEST(Ack, SaysOkOrWhyNot) {
  EXPECT_EQ(ackReply(request).dump(),
            R"({"chromeRequestId":[1,"a"],"kind":"ack","ok":true,"source":"morva-chat"})");
  EXPECT_EQ(ackError(json::object(), "broken \xFF").dump(),
            "{\"error\":\"broken \xEF\xBF\xBD\",\"kind\":\"ack\",\"ok\":false,"
            "\"source\":\"morva-chat\"}");
}

TEST(ProviderRpcReply, CarriesDataOrError) {
  const json both = {{"rpcId", 5}, {"id", "x"}, {"chromeRequestId", 7}};
  EXPECT_EQ(providerRpcReply(both, true, {{"a", 1}}).dump(),
            R"({"chromeRequestId":7,"data":{"a":1},"id":"x","kind":"hostProviderRpc","ok":true,)"
            R"("rpcId":5,"source":"morva-chat"})");
  EXPECT_EQ(providerRpcReply(json::object(), false, "why").dump(),
            R"({"error":"why","kind":"hostProviderRpc","ok":false,"source":"morva-chat"})");
}

const std::tuple<const char*, json, json, std::string> replyCases[] = {
    {"an object",
     request,
     {{"kind", "k"}},
     R"({"chromeRequestId":[1,"a"],"kind":"k","source":"morva-chat"})"},
    {"its own source and token stay",
     request,
     {{"source", "s"}, {"chromeRequestId", 3}},
     R"({"chromeRequestId":3,"source":"s"})"},
    {"an array", request, json::array({1}), R"({"chromeRequestId":[1,"a"],"source":"morva-chat"})"},
    {"a request that is no object", 5, json::object(), R"({"source":"morva-chat"})"},
    {"what is not UTF-8",
     json::object(),
     {{"a", "\xFF"}},
     "{\"a\":\"\xEF\xBF\xBD\",\"source\":\"morva-chat\"}"},
};

TEST(SendReply, SendsOneFrameWhateverTheReply) {
  for (const auto& [name, message, reply, frame] : replyCases) {
    SCOPED_TRACE(name);
    CapturedOutput output;
    sendReply(message, reply);
    EXPECT_EQ(output.finish(), std::vector<std::string>{frame});
  }
}

TEST(SendReply, ReplacesAReplyThatIsTooLargeForTheBrowser) {
  limitFramesForBrowser();
  const std::string around = R"({"fill":"","kind":"k","source":"morva-chat"})";
  const auto reply = [&around](std::size_t size) {
    return json{{"kind", "k"}, {"fill", std::string(size - around.size(), 'x')}};
  };
  CapturedOutput output;
  sendReply(json::object(), reply(maxBrowserBody));
  sendReply(json::object(), reply(maxBrowserBody + 1));
  const std::vector<std::string> frames = output.finish();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(frames[0].size(), maxBrowserBody);
  EXPECT_EQ(frames[1],
            R"x({"error":"reply too large for the browser (1048577 bytes)","kind":"k","ok":false,)x"
            R"("source":"morva-chat"})");
}

TEST(SendReply, KeepsTheTokensOfAReplyThatIsTooLargeUnlessTheyAre) {
  limitFramesForBrowser();
  const std::string fill(maxBrowserBody, 'x');
  const std::string longest(1022, 'i');  // 1024 bytes with its quotes
  CapturedOutput output;
  sendReply({{"chromeRequestId", 1}}, {{"fill", fill}, {"kind", 5}, {"rpcId", 2}, {"id", longest}});
  sendReply({{"chromeRequestId", fill}}, {{"kind", "k"}, {"id", longest + "i"}});
  const std::vector<std::string> frames = output.finish();
  ASSERT_EQ(frames.size(), 2U);
  json first = json::parse(frames[0]);
  first.erase("error");
  EXPECT_EQ(first, (json{{"source", "morva-chat"},
                         {"kind", "ack"},
                         {"ok", false},
                         {"chromeRequestId", 1},
                         {"rpcId", 2},
                         {"id", longest}}));
  json second = json::parse(frames[1]);
  second.erase("error");
  EXPECT_EQ(second, (json{{"source", "morva-chat"}, {"kind", "k"}, {"ok", false}}));
}

TEST(SendHostStatus, NamesTheAgentsState) {
  CapturedOutput output;
  sendHostStatus("connected");
  EXPECT_EQ(output.finish(),
            std::vector<std::string>{R"({"agent":"connected","kind":"hostStatus",)"
                                     R"("nativeHost":"connected","source":"morva-chat"})"});
}

TEST(PipeErrorReply, NamesTheRequest) {
  EXPECT_EQ(pipeErrorReply("r", "CODE", "text \xFF").dump(),
            "{\"error\":{\"code\":\"CODE\",\"message\":\"text \xEF\xBF\xBD\"},\"ok\":false,"
            "\"protocolVersion\":1,\"requestId\":\"r\",\"type\":\"error\"}");
  EXPECT_EQ(pipeErrorReply("", "CODE", "text").at("requestId"), "unknown");
  const std::string longId(5000, 'i');
  EXPECT_EQ(pipeErrorReply(longId, "CODE", "text").at("requestId"), longId);
}

}  // namespace
}  // namespace media::win::chrome_inspect
