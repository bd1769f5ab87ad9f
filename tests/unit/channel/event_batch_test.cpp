// Events for the panel, alone and in batches.
#include "channel/event_batch.h"

#include "channel/framing.h"
#include "channel/host_log.h"
#include "channel/panel_events.h"
#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(EventBatch, SendsAllInOneFrame) {
  CapturedOutput output;
  EventBatch batch;
  batch.add("first\"", json::array({1, "\xC3\xA9"}));
  batch.add("second", R"({"args":[],"method":"second","more":true})"s);
  EXPECT_TRUE(batch.send());
  EXPECT_TRUE(batch.send());  // nothing is left
  EXPECT_EQ(
      output.finish(),
      std::vector<std::string>{"{\"events\":[{\"args\":[1,\"\xC3\xA9\"],\"method\":\"first\\\"\"},"
                               "{\"args\":[],\"method\":\"second\",\"more\":true}],"
                               "\"kind\":\"hostChatEvents\",\"source\":\"morva-chat\"}"});
}

// An event of exactly `size` bytes.
std::string eventOfSize(std::size_t size) {
  const std::string head = R"({"args":[")";
  const std::string tail = R"("],"method":"m"})";
  return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

const std::size_t aroundEvents =
    json{{"source", "morva-chat"}, {"kind", "hostChatEvents"}, {"events", json::array()}}
        .dump()
        .size();

TEST(EventBatch, SplitsExactlyWhereTheBrowsersLimitIs) {
  {
    CapturedOutput output;
    EventBatch batch;
    for (int i = 0; i < 2; ++i) batch.add("m", eventOfSize(maxBrowserBody));
    EXPECT_TRUE(batch.send());
    EXPECT_EQ(output.finish().size(), 1U);
  }
  limitFramesForBrowser();
  const std::size_t room = maxBrowserBody - aroundEvents;
  const std::tuple<const char*, std::vector<std::size_t>, std::vector<std::size_t>> cases[] = {
      {"two that just fit", {room / 2, room - room / 2 - 1}, {maxBrowserBody}},
      {"two that just do not",
       {room / 2, room - room / 2},
       {aroundEvents + room / 2, aroundEvents + room - room / 2}},
      {"small ones around a large one",
       {100, room, 200},
       {aroundEvents + 100, maxBrowserBody, aroundEvents + 200}},
  };
  for (const auto& [name, sizes, frames] : cases) {
    SCOPED_TRACE(name);
    CapturedOutput output;
    EventBatch batch;
    for (const std::size_t size : sizes) batch.add("m", eventOfSize(size));
    EXPECT_TRUE(batch.send());
    std::vector<std::size_t> written;
    for (const std::string& frame : output.finish()) written.push_back(frame.size());
    EXPECT_EQ(written, frames);
  }
}

TEST(EventBatch, ReplacesAnEventThatFitsIntoNoFrame) {
  limitFramesForBrowser();
  const std::size_t size = maxBrowserBody - aroundEvents + 1;
  CapturedOutput output;
  EventBatch batch;
  batch.add("before", json::array());
  batch.add("m", eventOfSize(size));
  EXPECT_TRUE(batch.send());
  const auto lineFor = [](const std::string& name, std::size_t bytes) {
    return R"({"args":[{"role":"error","text":"event )" + name +
           " left out: too large for the browser (" + std::to_string(bytes) +
           R"x( bytes)"}],"method":"appendText"})x";
  };
  EXPECT_EQ(eventsIn(output.finish()),
            (std::vector<std::string>{R"({"args":[],"method":"before"})", lineFor("m", size)}));
}

TEST(EventBatch, SaysWhenOutputIsGoneAlsoForAnEarlierFrame) {
  limitFramesForBrowser();
  CapturedOutput output(CapturedOutput::Reader::stalls);
  output.closeReader();
  EventBatch batch;
  batch.add("m", eventOfSize(700'000));
  batch.add("m", eventOfSize(700'000));
  EXPECT_FALSE(batch.send());
}

TEST(EmitPanelMessage, SendsOneEventBehindTheWaitingLogLines) {
  appendDebugLog("line");
  CapturedOutput output;
  emitPanelMessage("setBusy", json::array({true}));
  emitPanelMessage("m", json::array());
  EXPECT_EQ(output.finish(),
            (CapturedOutput::Frames{
                R"({"events":[{"args":[{"level":"trace","source":"agent","text":"line"}],)"
                R"("method":"appendDebugLog"},{"args":[true],"method":"setBusy"}],)"
                R"("kind":"hostChatEvents","source":"morva-chat"})",
                R"({"events":[{"args":[],"method":"m"}],"kind":"hostChatEvents",)"
                R"("source":"morva-chat"})"}));
}

TEST(EmitPanelMessage, DropsWhatIsNoEventAndLeavesTheLogAlone) {
  appendDebugLog("kept");
  CapturedOutput output;
  emitPanelMessage("", json::array());
  for (const json& args : {json::object(), json("a"), json(nullptr), json(1), json(true)}) {
    emitPanelMessage("m", args);
  }
  EXPECT_TRUE(output.finish().empty());
  EXPECT_EQ(takeDebugLogEvents(40).size(), 1U);
}

TEST(SendChatEventBatch, SendsAWholeEventBehindTheWaitingLogLines) {
  appendDebugLog("line");
  CapturedOutput output;
  sendChatEventBatch("a", R"({"args":[1],"id":2,"method":"a"})");
  const CapturedOutput::Frames events = eventsIn(output.finish());
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[1], R"({"args":[1],"id":2,"method":"a"})");
}

}  // namespace
}  // namespace media::win::chrome_inspect
