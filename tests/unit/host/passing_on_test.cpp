// What is passed on as text must be what was passed on as trees: thousands of messages, made up
// anew and alike each time, against the replies that their trees have.

#include "host/stdin_reader.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/random_json.h"
#include "support/test_pipe.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

json treeOf(const std::string& text) {
  json tree;
  std::string error;
  EXPECT_EQ(parseJson(text, tree, error), ParseOutcome::ok) << error << text;
  return tree;
}

// The beginning of a message, and what it is answered but for what is echoed.
const std::pair<const char*, const char*> messageKinds[] = {
    {R"("kind":"getStatus")", R"({"kind":"ack","ok":true})"},
    {R"("kind":"noSuchKind")", R"({"kind":"ack","ok":true})"},
    {R"("kind":"attachContextPaths","paths":5)", R"({"kind":"ack","ok":true})"},
    {R"("kind":"openPathDefault")", R"({"error":"file not found","kind":"ack","ok":false})"},
    {R"("kind":"send","prompt":"")", R"({"error":"empty prompt","kind":"error","ok":false})"},
    {R"("kind":"poll")", R"({"events":[],"kind":"hostChatEvents","ok":true})"},
    {R"("kind":"providerRpc","method":"searchCancel")",
     R"({"data":{},"kind":"hostProviderRpc","ok":true})"},
    {R"("kind":"providerRpc","method":"m\ud83d")",
     "{\"error\":\"chrome host does not handle m\xEF\xBF\xBD\",\"kind\":\"hostProviderRpc\","
     "\"ok\":false}"},
    {R"("kind":5)",
     "{\"error\":\"[json.exception.type_error.302] type must be string, but is "
     "number\",\"kind\":\"ack\",\"ok\":false}"},
};

json wantedReply(const json& message, const char* reply) {
  json wanted = json::parse(reply);
  wanted["source"] = "morva-chat";
  const bool isRpc = wanted["kind"] == "hostProviderRpc";
  for (const char* key : {"chromeRequestId", "rpcId", "id"}) {
    const bool isEchoed = isRpc || std::string_view(key) == "chromeRequestId";
    if (isEchoed && message.contains(key)) wanted[key] = message[key];
  }
  return wanted;
}

TEST(PassingOn, EchoesWhateverAMessageCarries) {
  RandomJson random(1);
  std::string frames;
  std::vector<json> wanted;
  for (int i = 0; i < 1500; ++i) {
    const auto& [kind, reply] = messageKinds[random.below(std::size(messageKinds))];
    std::string message = "{" + std::string(kind) + R"(,"source":"morva-chat")";
    for (const char* key : {"chromeRequestId", "rpcId", "id", "other", "chromeRequestId"}) {
      if (random.below(3) > 0) message += ",\"" + std::string(key) + "\":" + random.value();
    }
    if (random.below(50) == 0) message += ",\"pad\":\"" + std::string(70'000, 'x') + "\"";
    message += "}";
    frames += frameOf(message);
    wanted.push_back(wantedReply(treeOf(message), reply));
  }
  const FedPipe input(frames, 100'000);
  FrameReader reader(input.id());
  PanelWork work;
  CapturedOutput output;
  EXPECT_FALSE(readAndAnswer(reader, work));
  const CapturedOutput::Frames replies = output.finish();
  ASSERT_EQ(replies.size(), wanted.size());
  for (std::size_t i = 0; i < wanted.size(); ++i) EXPECT_EQ(json::parse(replies[i]), wanted[i]);
}

TEST(PassingOn, HandsTheAgentsDataToThePanelAndThePanelsToTheAgent) {
  RandomJson random(2);
  std::string data;
  AgentDouble agent([&data](ServedConnection& connection) {
    answerWith(connection, R"({"ok":true,"data":)" + data + "}");
  });
  agent.adopt();
  for (int i = 0; i < 100; ++i) {
    data = random.value(5);
    const std::string session = random.value(5);
    const std::string message = frameOf(R"({"source":"morva-chat","kind":"providerRpc",)"
                                        R"("method":"saveChatSession","session":)" +
                                        session + "}");
    const FedPipe input(message, 64);
    FrameReader reader(input.id());
    PanelWork work;
    CapturedOutput output;
    EXPECT_FALSE(readAndAnswer(reader, work));
    const CapturedOutput::Frames replies = output.finish();
    ASSERT_FALSE(replies.empty());  // the agent's state may come first
    EXPECT_EQ(json::parse(replies.back()).at("data"), treeOf(data)) << data;
    EXPECT_EQ(json::parse(bodyOf(agent.requests("POST /v1/chat/sessions").back())), treeOf(session))
        << session;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
