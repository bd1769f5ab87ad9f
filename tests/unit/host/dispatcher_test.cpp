#include "host/dispatcher.h"

#include "agent/current_agent.h"
#include "agent/running_turns.h"
#include "browser_tools/browser_context.h"
#include "channel/framing.h"
#include "channel/host_log.h"
#include "platform/clock.h"
#include "support/captured_output.h"
#include "support/child_probe.h"
#include "support/json_replies.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string ack(bool ok, const std::string& error = "") {
  json reply = {{"kind", "ack"}, {"ok", ok}};
  if (!ok) reply["error"] = error;
  return reply.dump();
}

const std::pair<const char*, std::string> kindCases[] = {
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
    {R"({"kind":"contextImportUrl"})", ack(false, "file import is not ready")},
    {R"({"kind":"send"})", R"({"error":"empty prompt","kind":"error","ok":false})"},
    {R"({"kind":"send","prompt":null})", R"({"error":"empty prompt","kind":"error","ok":false})"},
};

TEST(HandleMessage, AnswersEachKind) {
  for (const auto& [request, reply] : kindCases) {
    EXPECT_EQ(replyOf(handleMessage, json::parse(request)).dump(), reply) << request;
  }
}

// The lines and those that are sent otherwise must keep their order, so it replies itself.
TEST(HandleMessage, RepliesToAPollWithTheLinesThatWait) {
  appendDebugLog("one");
  appendDebugLog("two", "warn");
  const json poll = {{"kind", "poll"}, {"chromeRequestId", 3}};
  CapturedOutput output;
  EXPECT_TRUE(replyOf(handleMessage, poll).is_null());
  EXPECT_TRUE(replyOf(handleMessage, poll).is_null());
  EXPECT_EQ(
      output.finish(),
      (CapturedOutput::Frames{
          R"({"chromeRequestId":3,"events":[{"args":[{"level":"trace","source":"agent","text":"one"}],"method":"appendDebugLog"},{"args":[{"level":"warn","source":"agent","text":"two"}],"method":"appendDebugLog"}],"kind":"hostChatEvents","ok":true,"source":"morva-chat"})",
          R"({"chromeRequestId":3,"events":[],"kind":"hostChatEvents","ok":true,"source":"morva-chat"})"}));
}

TEST(HandleMessage, GivesAPollNoLinesWhileOthersAreBeingSent) {
  appendDebugLog("one");
  CapturedOutput output;
  sendBehindLogLines([](const std::vector<json>& lines) {
    EXPECT_EQ(lines.size(), 1U);
    appendDebugLog("two");
    (void)replyOf(handleMessage, {{"kind", "poll"}});
  });
  (void)replyOf(handleMessage, {{"kind", "poll"}});
  const CapturedOutput::Frames frames = output.finish();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(json::parse(frames[0]).at("events").size(), 0U);
  EXPECT_EQ(json::parse(frames[1]).at("events").size(), 1U);
}

TEST(HandleMessage, KeepsTheBrowserContext) {
  (void)replyOf(handleMessage, {{"kind", "browserSnapshot"}, {"browser", {{"currentUrl", "u"}}}});
  EXPECT_EQ(browserContext().dump(), R"({"currentUrl":"u"})");
  for (const json& none : {json(nullptr), json("x"), json::array(), json(5)}) {
    EXPECT_EQ(replyOf(handleMessage, {{"kind", "browserSnapshot"}, {"browser", none}}).at("ok"),
              true);
  }
  EXPECT_EQ(browserContext().dump(), R"({"currentUrl":"u"})");
}

TEST(HandleMessage, StopStopsTheTurnsDispatchedBefore) {
  const RunningTurn turn;
  (void)replyOf(handleMessage, {{"kind", "stop"}});
  EXPECT_TRUE(turn.stopped());
  EXPECT_FALSE(RunningTurn().stopped());
}

using KindAndActivity = std::pair<std::string, bool>;

class Activity : public testing::TestWithParam<KindAndActivity> {};

INSTANTIATE_TEST_SUITE_P(
    Kinds, Activity,
    testing::Values(KindAndActivity{"poll", false}, KindAndActivity{"ready", false},
                    KindAndActivity{"chatWebState", false},
                    KindAndActivity{"requestContext", false}, KindAndActivity{"hostLog", false},
                    KindAndActivity{"getStatus", false}, KindAndActivity{"browserSnapshot", true},
                    KindAndActivity{"send", true}, KindAndActivity{"speak", true},
                    KindAndActivity{"noSuchKind", true}),
    [](const auto& row) { return row.param.first; });

// The clock of the looks is 200 s late: whatever happens now is activity after all of them.
TEST_P(Activity, KeepsTheAgentFromBeingIdle) {
  const std::uint64_t serial = adoptOwnedAgent(idleChild(), 8090);
  const std::uint64_t start = tickCountMs() - 200'000;
  for (std::uint64_t at = 0; at < 60'000; at += 5000) EXPECT_FALSE(stopIdleAgent(start + at));
  const auto& [kind, isActivity] = GetParam();
  (void)replyOf(handleMessage, {{"kind", kind}});
  EXPECT_EQ(static_cast<bool>(stopIdleAgent(start + 60'000)), !isActivity);
  stopOwnedAgent(serial);
}

TEST(AnswerPanelMessage, RepliesOnceAndEchoesTheToken) {
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
  };
  for (const auto& c : cases) {
    CapturedOutput output;
    answerPanelMessage(documentOf(c.request).root());
    (void)writeHeldFrames();
    EXPECT_EQ(output.finish(), CapturedOutput::Frames{c.reply}) << c.request;
  }
}

// A message, one of its members and the type that it must have.
const std::tuple<const char*, const char*, std::string> typedMembers[] = {
    {R"({})", "kind", "string"},
    {R"({"kind":"send"})", "prompt", "string"},
    {R"({"kind":"speak"})", "text", "string"},
    {R"({"kind":"settings"})", "section", "string"},
    {R"({"kind":"cliDirSet"})", "dir", "string"},
    {R"({"kind":"cliDirApply"})", "dir", "string"},
    {R"({"kind":"chatSender"})", "sender", "string"},
    {R"({"kind":"chatSender"})", "after", "number"},
    {R"({"kind":"openPathInternal"})", "path", "string"},
    {R"({"kind":"openPathFullscreen"})", "path", "string"},
    {R"({"kind":"openPathDefault"})", "path", "string"},
    {R"({"kind":"openUrlDefault"})", "path", "string"},
    {R"({"kind":"revealPathInExplorer"})", "url", "string"},
    {R"({"kind":"selectPathInExplorer"})", "url", "string"},
    {R"({"kind":"openFolderInExplorer"})", "url", "string"},
    {R"({"kind":"realtimePushToTalk"})", "held", "boolean"},
    {R"({"kind":"realtimePushToTalk"})", "latched", "boolean"},
    {R"({"kind":"realtimePushToTalk"})", "finishInputTurn", "boolean"},
    {R"({"kind":"providerRpc","rpcId":1})", "method", "string"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"loadChatSession"})", "id", "string"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"deleteChatSession"})", "id", "string"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"commandRun"})", "id", "string"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"chatSkillsList"})", "cwd", "string"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"searchStart"})", "query", "string"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"searchStart"})", "headLimit", "number"},
    {R"({"kind":"providerRpc","rpcId":1,"method":"vumboArtifactsGet"})", "limit", "number"},
};

TEST(AnswerPanelMessage, RefusesAnotherTypeWithTheLibrarysText) {
  const json values[] = {"text", true, 5, -1.5, 1e300, json::array({1}), {{"a", 1}}};
  for (const auto& [message, member, type] : typedMembers) {
    for (const json& value : values) {
      if (type == value.type_name()) continue;
      if (type == "number" && value.is_boolean()) continue;  // numbers take truth values too
      json request = json::parse(message);
      request[member] = value;
      json wanted = {{"kind", "ack"}, {"ok", false}, {"source", "morva-chat"}};
      wanted["error"] =
          "[json.exception.type_error.302] type must be " + type + ", but is " + value.type_name();
      if (request.contains("rpcId")) {
        wanted["kind"] = "hostProviderRpc";
        wanted["rpcId"] = 1;
        if (request.contains("id")) wanted["id"] = request["id"];
      }
      CapturedOutput output;
      answerPanelMessage(documentOf(request).root());
      EXPECT_EQ(json::parse(output.finish().at(0)), wanted) << request;
    }
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
