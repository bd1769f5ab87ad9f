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

TEST(Ack, SaysOkOrWhyNot) {
  EXPECT_EQ(ackReply(), R"({"kind":"ack","ok":true})");
  EXPECT_EQ(ackError("broken \xFF"),
            "{\"error\":\"broken \xEF\xBF\xBD\",\"kind\":\"ack\",\"ok\":false}");
}

TEST(ProviderRpcReply, CarriesDataOrError) {
  const JsonDocument both = documentOf({{"rpcId", 5}, {"id", "x"}, {"chromeRequestId", 7}});
  EXPECT_EQ(providerRpcReply(both.root(), R"({"a":1})"),
            R"({"data":{"a":1},"id":"x","kind":"hostProviderRpc","ok":true,"rpcId":5})");
  EXPECT_EQ(providerRpcError({}, "why"), R"({"error":"why","kind":"hostProviderRpc","ok":false})");
}

TEST(SendReply, AddsSourceAndTokenAtOnceOrBehindTheOthers) {
  const JsonDocument request = documentOf({{"chromeRequestId", {1, "a", nullptr}}});
  CapturedOutput output;
  sendReply({}, R"({"kind":"a"})", Sending::held);
  EXPECT_TRUE(writeHeldFrames());
  sendReply(documentOf(5).root(), R"({"kind":"b"})", Sending::held);
  sendReply(request.root(), R"({"kind":"c"})");
  sendReply({}, R"({"kind":"not sent"})", Sending::held);
  EXPECT_EQ(output.finish(),
            (CapturedOutput::Frames{
                R"({"kind":"a","source":"morva-chat"})", R"({"kind":"b","source":"morva-chat"})",
                R"({"chromeRequestId":[1,"a",null],"kind":"c","source":"morva-chat"})"}));
}

TEST(SendReply, ReplacesAReplyThatIsTooLargeForTheBrowser) {
  limitFramesForBrowser();
  const std::string around = R"({"fill":"","kind":"k","source":"morva-chat"})";
  const auto reply = [&around](std::size_t size) {
    return dumpJson({{"kind", "k"}, {"fill", std::string(size - around.size(), 'x')}});
  };
  CapturedOutput output;
  sendReply({}, reply(maxBrowserBody));
  sendReply({}, reply(maxBrowserBody + 1));
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
  const JsonDocument one = documentOf({{"chromeRequestId", 1}});
  const JsonDocument large = documentOf({{"chromeRequestId", fill}});
  sendReply(one.root(), dumpJson({{"fill", fill}, {"kind", 5}, {"rpcId", 2}, {"id", longest}}));
  sendReply(large.root(), dumpJson({{"kind", "k"}, {"id", longest + "i"}}));
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
