#include "host/dispatcher.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "agent/agent_state.h"
#include "browser_tools/browser_context.h"
#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

std::string ack(bool ok, const std::string& error = "") {
  json reply = {{"kind", "ack"}, {"ok", ok}, {"source", "morva-chat"}};
  if (!ok) reply["error"] = error;
  return reply.dump();
}

struct KindCase {
  const char* request;
  std::string reply;
};

const KindCase kindCases[] = {
    {R"({})", ack(true)},
    {R"({"kind":null})", ack(true)},
    {R"({"kind":"noSuchKind"})", ack(true)},
    {R"({"kind":"ready"})", ack(true)},
    {R"({"kind":"getStatus"})", ack(true)},
    {R"({"kind":"hostLog","text":"x"})", ack(true)},
    {R"({"kind":"chatWebState"})", ack(true)},
    {R"({"kind":"requestContext"})", ack(true)},
    {R"({"kind":"browserSnapshot"})", ack(true)},
    {R"({"kind":"poll"})",
     R"({"events":[],"kind":"hostChatEvents","ok":true,"source":"morva-chat"})"},
    {R"({"kind":"contextImportUrl"})", ack(false, "file import is not ready")},
    {R"({"kind":"send"})",
     R"({"error":"empty prompt","kind":"error","ok":false,"source":"morva-chat"})"},
    {R"({"kind":"send","prompt":""})",
     R"({"error":"empty prompt","kind":"error","ok":false,"source":"morva-chat"})"},
    {R"({"kind":"send","prompt":null})",
     R"({"error":"empty prompt","kind":"error","ok":false,"source":"morva-chat"})"},
};

TEST(HandleMessage, AnswersEachKind) {
  for (const KindCase& c : kindCases) {
    SCOPED_TRACE(c.request);
    EXPECT_EQ(handleMessage(json::parse(c.request)).dump(), c.reply);
  }
}

TEST(HandleMessage, EchoesTheToken) {
  for (const char* const kind : {"ready", "poll", "send", "other"}) {
    EXPECT_EQ(handleMessage({{"kind", kind}, {"chromeRequestId", {1}}}).at("chromeRequestId"),
              json::array({1}))
        << kind;
  }
}

TEST(HandleMessage, KeepsTheBrowserContext) {
  (void)handleMessage({{"kind", "browserSnapshot"}, {"browser", {{"currentUrl", "u"}}}});
  EXPECT_EQ(browserContext().dump(), R"({"currentUrl":"u"})");
  for (const json& none : {json(nullptr), json("x"), json::array(), json(5)}) {
    EXPECT_EQ(handleMessage({{"kind", "browserSnapshot"}, {"browser", none}}).at("ok"), true);
  }
  EXPECT_EQ(browserContext().dump(), R"({"currentUrl":"u"})");
}

TEST(HandleMessage, StopStopsTheTurnsDispatchedBefore) {
  const RunningTurn turn;
  (void)handleMessage({{"kind", "stop"}});
  EXPECT_TRUE(turn.stopped());
  EXPECT_FALSE(RunningTurn().stopped());
}

// Kinds and the arguments that they read.
const char* const allKinds[] = {"browserSnapshot", "poll", "send", "ready", "getStatus", "other"};
const char* const arguments[] = {"kind", "prompt",  "method",         "rpcId",
                                 "id",   "browser", "chromeRequestId"};

TEST(AnswerPanelMessage, SendsExactlyOneReplyWhateverTheTypes) {
  const json values[] = {nullptr, 5, -1.5, true, json::array({1}), {{"a", 1}}};
  for (const char* const kind : allKinds) {
    for (const char* const argument : arguments) {
      for (const json& value : values) {
        // A prompt that is text would start a turn.
        json request = {{"source", "morva-chat"}, {"kind", kind}, {"chromeRequestId", "t"}};
        request[argument] = value;
        SCOPED_TRACE(request.dump());
        CapturedOutput output;
        answerPanelMessage(request);
        const CapturedOutput::Frames frames = output.finish();
        ASSERT_EQ(frames.size(), 1U);
        const json reply = json::parse(frames[0]);
        EXPECT_EQ(reply.at("source"), "morva-chat");
        EXPECT_TRUE(reply.at("ok").is_boolean());
        EXPECT_EQ(reply.at("chromeRequestId"), request.at("chromeRequestId"));
        EXPECT_EQ(reply.contains("error"), reply.at("ok") == false);
      }
    }
  }
}

TEST(AnswerPanelMessage, GivesTheExceptionsText) {
  const std::string text = "[json.exception.type_error.302] type must be string, but is number";
  CapturedOutput output;
  answerPanelMessage({{"kind", 5}});
  answerPanelMessage({{"kind", "send"}, {"prompt", 5}});
  EXPECT_EQ(output.finish(), (CapturedOutput::Frames{ack(false, text), ack(false, text)}));
}

TEST(AnswerPanelMessage, AnswersWhatIsNoObject) {
  for (const json& request : {json(nullptr), json::array({1}), json("x")}) {
    CapturedOutput output;
    answerPanelMessage(request);
    EXPECT_EQ(output.finish(), CapturedOutput::Frames{ack(true)});
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
