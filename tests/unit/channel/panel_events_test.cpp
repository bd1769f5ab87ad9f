#include "channel/panel_events.h"

#include "channel/host_log.h"
#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

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

TEST(SendChatEventBatch, SendsWholeEvents) {
  CapturedOutput output;
  sendChatEventBatch(json::array());
  sendChatEventBatch(json::array({{{"method", "a"}, {"args", {1}}}, {{"method", "b"}}}));
  EXPECT_EQ(output.finish(),
            CapturedOutput::Frames{R"({"events":[{"args":[1],"method":"a"},{"method":"b"}],)"
                                   R"("kind":"hostChatEvents","source":"morva-chat"})"});
}

}  // namespace
}  // namespace media::win::chrome_inspect
