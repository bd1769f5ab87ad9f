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
    {R"({"kind":"browserSnapshot"})", ack(true)},
    {R"({"kind":"openPathDefault","path":"/no/such/file"})", ack(false, "file not found")},
    {R"({"kind":"revealPathInExplorer","url":"/no/such/file"})", ack(false, "file not found")},
    {R"({"kind":"openFolderInExplorer","path":"","url":""})", ack(false, "file not found")},
    {R"({"kind":"openUrlDefault","path":"","url":"https://a/\u0000b"})", ack(true)},
    {R"({"kind":"attachContextPaths","paths":"a"})", ack(true)},
    {R"({"kind":"poll"})",
     R"({"events":[],"kind":"hostChatEvents","ok":true,"source":"morva-chat"})"},
    {R"({"kind":"contextImportUrl"})", ack(false, "file import is not ready")},
    {R"({"kind":"send"})",
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

// A wrong type fails the message in the reply's own kind, with the token of the request.
TEST(AnswerPanelMessage, RepliesOnceWhateverTheTypes) {
  const struct {
    json request;
    const char* reply;
  } cases[] = {
      {nullptr, R"({"kind":"ack","ok":true,"source":"morva-chat"})"},
      {json::array({1}), R"({"kind":"ack","ok":true,"source":"morva-chat"})"},
      {{{"kind", "ready"}, {"chromeRequestId", {1}}},
       R"({"chromeRequestId":[1],"kind":"ack","ok":true,"source":"morva-chat"})"},
      {{{"kind", 5}, {"chromeRequestId", 1}},
       R"({"chromeRequestId":1,"error":"[json.exception.type_error.302] type must be string, but )"
       R"(is number","kind":"ack","ok":false,"source":"morva-chat"})"},
      {{{"kind", "send"}, {"prompt", json::array()}},
       R"({"error":"[json.exception.type_error.302] type must be string, but is array",)"
       R"("kind":"ack","ok":false,"source":"morva-chat"})"},
      {{{"kind", "providerRpc"}, {"method", true}, {"rpcId", 3}},
       R"({"error":"[json.exception.type_error.302] type must be string, but is boolean",)"
       R"("kind":"hostProviderRpc","ok":false,"rpcId":3,"source":"morva-chat"})"},
  };
  for (const auto& c : cases) {
    CapturedOutput output;
    answerPanelMessage(c.request);
    EXPECT_EQ(output.finish(), CapturedOutput::Frames{c.reply}) << c.request;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
