#include "host/stdin_reader.h"

#include "channel/framing.h"
#include "channel/host_log.h"
#include "channel/pending_replies.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/json_replies.h"
#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string ready = R"({"source":"morva-chat","kind":"ready","chromeRequestId":1})";
const std::string ack = R"({"chromeRequestId":1,"kind":"ack","ok":true,"source":"morva-chat"})";

// What is replied to `frames`, which come in pieces of `chunk` bytes, until they end.
CapturedOutput::Frames repliesTo(const std::string& frames, std::size_t chunk = 64) {
  PanelWork work;
  const FedPipe input(frames, chunk);
  CapturedOutput output;
  FrameReader reader(input.id());
  EXPECT_FALSE(readAndAnswer(reader, work));
  EXPECT_TRUE(work.waitUntilDone(0));
  return output.finish();
}

TEST(ReadAndAnswer, RepliesToPanelMessagesInOrder) {
  const std::string poll = R"({"source":"morva-chat","kind":"poll"})";
  EXPECT_EQ(
      repliesTo(frameOf(ready) + frameOf(poll) + frameOf(ready)),
      (CapturedOutput::Frames{
          ack, R"({"events":[],"kind":"hostChatEvents","ok":true,"source":"morva-chat"})", ack}));
}

// Three messages of one read, of which the second takes its time, and the beginning of another.
TEST(ReadAndAnswer, HoldsNoReplyWhileItWaits) {
  CapturedOutput output;
  AgentDouble agent([&](ServedConnection& connection) {
    EXPECT_EQ(output.waitFor(1), CapturedOutput::Frames{ack});
    answerWith(connection, R"({"ok":true})");
  });
  agent.adopt();
  const std::string call =
      R"({"source":"morva-chat","kind":"providerRpc","method":"getCreditInfo"})";
  const std::string frames = frameOf(ready) + frameOf(call) + frameOf(ready) + frameHeader(5);
  TestPipe input;
  ASSERT_TRUE(writeAll(input.writeEnd.get(), frames));
  PanelWork work;
  TestThread reading([&] {
    FrameReader reader(input.readEnd.get());
    EXPECT_FALSE(readAndAnswer(reader, work));
  });
  EXPECT_EQ(
      output.waitFor(3),
      (CapturedOutput::Frames{
          ack, R"({"data":{},"kind":"hostProviderRpc","ok":true,"source":"morva-chat"})", ack}));
  input.writeEnd.reset();
}

TEST(ReadAndAnswer, StoresTheExtensionsAnswers) {
  EXPECT_TRUE(repliesTo(frameOf(R"({"ok":true,"requestId":"r","n":1})") +
                        frameOf(R"({"ok":true,"requestId":5})"))
                  .empty());
  json reply;
  EXPECT_TRUE(waitForReply("r", 0, reply));
  EXPECT_EQ(reply.at("n"), 1);
}

TEST(ReadAndAnswer, PassesOverWhatIsForNobody) {
  const std::string deep = std::string(1001, '[') + std::string(1001, ']');
  EXPECT_EQ(repliesTo(frameOf("[1]") + frameHeader(0) + frameOf(deep) + frameOf(ready)),
            CapturedOutput::Frames{ack});
  EXPECT_EQ(takeDebugLogEvents(40).at(0).at(0).dump(),
            R"({"level":"error","source":"agent","text":"frame dropped: json nested too deeply"})");
}

TEST(ReadAndAnswer, EndsAtWhatIsNoFrame) {
  for (const std::string& end :
       {frameOf("{"), frameHeader(maxInboundBody + 1), std::string("\1")}) {
    const std::string frames = frameOf(ready) + end + frameOf(ready);
    EXPECT_EQ(repliesTo(frames), CapturedOutput::Frames{ack});
    EXPECT_EQ(repliesTo(frames, frames.size()), CapturedOutput::Frames{ack});  // was it held?
  }
}

TEST(ReadAndAnswer, LeavesTheNextMessagesToWhoeverAnswers) {
  PanelWork work;
  PanelMessage slow;
  ASSERT_EQ(work.place(slow, 1), Placed::now);  // another thread is at it
  const FedPipe input(frameOf(ready), 64);
  CapturedOutput output;
  FrameReader reader(input.id());
  EXPECT_FALSE(readAndAnswer(reader, work));
  EXPECT_TRUE(output.finish().empty());
  PanelMessage next;
  EXPECT_TRUE(work.next(next));
  EXPECT_EQ(next.body.root()["kind"].text(), "ready");
}

// While an answer takes its time: all that fits is queued, the rest is refused in its turn, and the
// reader sees what comes behind at once.
TEST(ReadAndAnswer, RefusesWhatDoesNotFitInItsTurn) {
  PanelWork work;
  PanelMessage slow;
  ASSERT_EQ(work.place(slow, 1), Placed::now);
  ASSERT_EQ(work.place(slow, maxQueuedBytes), Placed::queued);
  const std::string call =
      R"({"source":"morva-chat","kind":"providerRpc","method":"m","rpcId":[7],"id":"i"})";
  const FedPipe input(frameOf(ready) + frameOf(call) + frameOf(R"({"ok":true,"requestId":"late"})"),
                      64);
  CapturedOutput none;
  FrameReader reader(input.id());
  EXPECT_FALSE(readAndAnswer(reader, work));
  json reply;
  EXPECT_TRUE(waitForReply("late", 0, reply));
  EXPECT_TRUE(none.finish().empty());
  PanelMessage message;
  ASSERT_TRUE(work.next(message));
  CapturedOutput output;
  while (work.next(message)) answerMessage(message);
  EXPECT_EQ(
      output.finish(),
      (CapturedOutput::Frames{
          R"({"chromeRequestId":1,"error":"host is busy","kind":"ack","ok":false,"source":"morva-chat"})",
          R"({"error":"host is busy","id":"i","kind":"hostProviderRpc","ok":false,"rpcId":[7],"source":"morva-chat"})"}));
}

TEST(ReadAndAnswer, DropsWhatNotEvenARefusalFitsFor) {
  PanelWork work;
  PanelMessage refusal{{}, "{}"};
  ASSERT_EQ(work.place(refusal, 1), Placed::now);
  refusal.refusal = "{}";
  ASSERT_EQ(work.place(refusal, maxRefusalBytes), Placed::queued);
  PanelMessage message;
  ASSERT_EQ(work.place(message, maxQueuedBytes), Placed::queued);
  const FedPipe input(frameOf(ready), 64);
  FrameReader reader(input.id());
  EXPECT_FALSE(readAndAnswer(reader, work));
  EXPECT_EQ(takeDebugLogEvents(40).at(0).at(0).at("text"), "message dropped: too many wait");
}

}  // namespace
}  // namespace media::win::chrome_inspect
