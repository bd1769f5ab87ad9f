#include "channel/panel_events.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "channel/host_log.h"
#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

TEST(EmitPanelMessage, SendsOneEvent) {
  CapturedOutput output;
  emitPanelMessage("setBusy", json::array({true}));
  EXPECT_EQ(output.finish(),
            std::vector<std::string>{R"({"events":[{"args":[true],"method":"setBusy"}],)"
                                     R"("kind":"hostChatEvents","source":"morva-chat"})"});
}

TEST(EmitPanelMessage, DropsWhatIsNoEvent) {
  CapturedOutput output;
  emitPanelMessage("", json::array());
  for (const json& args : {json::object(), json("a"), json(nullptr), json(1), json(true)}) {
    emitPanelMessage("m", args);
  }
  EXPECT_TRUE(output.finish().empty());
}

TEST(EmitPanelMessage, SendsWaitingLogLinesAheadAtMost40) {
  // Lines pile up only while another batch is being written.
  for (int i = 0; i < 19; ++i) appendDebugLog("line " + std::to_string(i));
  CapturedOutput output;
  emitPanelMessage("m", json::array());
  const std::vector<std::string> frames = output.finish();
  EXPECT_EQ(frames.size(), 1U);
  const std::vector<std::string> events = eventsIn(frames);
  ASSERT_EQ(events.size(), 20U);
  EXPECT_EQ(events.front(), R"({"args":[{"level":"trace","source":"agent","text":"line 0"}],)"
                            R"("method":"appendDebugLog"})");
  EXPECT_EQ(events.back(), R"({"args":[],"method":"m"})");
}

TEST(EmitPanelMessage, LeavesLogLinesAloneWhenItSendsNothing) {
  appendDebugLog("kept");
  emitPanelMessage("m", json::object());
  EXPECT_EQ(takeDebugLogEvents(40).size(), 1U);
}

TEST(SendChatEventBatch, SendsWholeEvents) {
  CapturedOutput output;
  sendChatEventBatch(json::array());
  sendChatEventBatch(json::array({{{"method", "a"}, {"args", {1}}}, {{"method", "b"}}}));
  EXPECT_EQ(output.finish(),
            std::vector<std::string>{R"({"events":[{"args":[1],"method":"a"},{"method":"b"}],)"
                                     R"("kind":"hostChatEvents","source":"morva-chat"})"});
}

}  // namespace
}  // namespace media::win::chrome_inspect
