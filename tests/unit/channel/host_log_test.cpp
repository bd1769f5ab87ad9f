#include "channel/host_log.h"

#include <new>

#include "channel/panel_events.h"
#include "support/captured_output.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Texts = std::vector<std::string>;

Texts textsOf(const std::vector<json>& lines) {
  Texts texts;
  for (const json& line : lines) texts.push_back(line.at(0).at("text"));
  return texts;
}

Texts textsIn(const CapturedOutput::Frames& frames) {
  Texts texts;
  for (const std::string& event : eventsIn(frames)) {
    texts.push_back(json::parse(event).at("args").at(0).at("text"));
  }
  return texts;
}

Texts numbered(int from, int to) {
  Texts texts;
  for (int i = from; i < to; ++i) texts.push_back(std::to_string(i));
  return texts;
}

TEST(TakeDebugLogEvents, ReturnsTheOldestFirst) {
  for (int i = 0; i < 5; ++i) appendDebugLog(std::to_string(i), i == 3 ? "warn" : "");
  const std::vector<json> lines = takeDebugLogEvents(4);
  EXPECT_EQ(textsOf(lines), numbered(0, 4));
  EXPECT_EQ(lines[0].dump(), R"([{"level":"trace","source":"agent","text":"0"}])");
  EXPECT_EQ(lines[3].dump(), R"([{"level":"warn","source":"agent","text":"3"}])");
  EXPECT_EQ(textsOf(takeDebugLogEvents(40)), numbered(4, 5));
  EXPECT_TRUE(takeDebugLogEvents(40).empty());
}

TEST(AppendDebugLog, CutsTextsAt1024Bytes) {
  const std::pair<std::string, std::string> cases[] = {
      {std::string(1024, 'x'), std::string(1024, 'x')},
      {std::string(5000, 'x'), std::string(1024, 'x')},
      {std::string(1023, 'x') + "\xC3\xA9", std::string(1023, 'x')},
      {"a\xFF", "a\xEF\xBF\xBD"},
  };
  for (const auto& [text, kept] : cases) {
    appendDebugLog(text);
    EXPECT_EQ(textsOf(takeDebugLogEvents(1)), Texts{kept});
  }
}

TEST(AppendDebugLog, SendsWithThe20thLine) {
  CapturedOutput output;
  for (int i = 0; i < 19; ++i) appendDebugLog(std::to_string(i));
  appendDebugLog("19");
  EXPECT_TRUE(takeDebugLogEvents(40).empty());
  for (int i = 20; i < 39; ++i) appendDebugLog(std::to_string(i));
  EXPECT_EQ(takeDebugLogEvents(40).size(), 19U);
  const CapturedOutput::Frames frames = output.finish();
  EXPECT_EQ(frames.size(), 1U);
  EXPECT_EQ(textsIn(frames), numbered(0, 20));
}

TEST(AppendDebugLog, SendsAtOnceWhenAskedTo) {
  CapturedOutput output;
  appendDebugLog("0");
  appendDebugLog("1", "error", true);
  EXPECT_EQ(output.finish(),
            std::vector<std::string>{
                R"({"events":[{"args":[{"level":"trace","source":"agent","text":"0"}],)"
                R"("method":"appendDebugLog"},)"
                R"({"args":[{"level":"error","source":"agent","text":"1"}],)"
                R"("method":"appendDebugLog"}],"kind":"hostChatEvents","source":"morva-chat"})"});
}

// Two threads send at once while the browser does not read: one is stuck in its batch, the other
// leaves its line to the first and goes on.
TEST(AppendDebugLog, DoesNotWaitForABatchThatAnotherThreadSends) {
  BlockedOutput output;
  std::atomic<int> done = 0;
  Gate oneIsDone;
  const auto flush = [&] {
    appendDebugLog("flushed", "trace", true);
    ++done;
    oneIsDone.open();
  };
  TestThread first(flush);
  TestThread second(flush);
  oneIsDone.wait();
  EXPECT_EQ(done, 1);
  output.resume();
  first.join();
  second.join();
  EXPECT_EQ(textsIn(output.finish()), (Texts{"flushed", "flushed"}));
}

TEST(QueueDebugLog, LeavesSendingToAnotherThread) {
  BlockedOutput output;
  for (int i = 0; i < 100; ++i) queueDebugLog(std::to_string(i), i == 0 ? "" : "warn");
  output.resume();  // got here: nothing waited
  // The sender rests only with fewer lines left than a batch needs.
  CapturedOutput::Frames frames = output.waitUntil([](const CapturedOutput::Frames& seen) {
    return seen.size() > 1 &&
           textsIn({seen.begin() + 1, seen.end()}).size() > 100 - logLinesThatSend;
  });
  frames = output.finish();
  Texts texts = textsIn(frames);
  for (const std::string& text : textsOf(takeDebugLogEvents(100))) texts.push_back(text);
  EXPECT_EQ(texts, numbered(0, 100));
  EXPECT_NE(frames[0].find(R"({"level":"trace","source":"agent","text":"0"})"), std::string::npos);
  EXPECT_NE(frames[0].find(R"({"level":"warn","source":"agent","text":"1"})"), std::string::npos);
}

TEST(QueueDebugLog, LeavesFewLinesForTheNextEvent) {
  CapturedOutput output;
  for (int i = 0; i < 19; ++i) queueDebugLog(std::to_string(i));
  EXPECT_EQ(textsOf(takeDebugLogEvents(40)), numbered(0, 19));
  EXPECT_TRUE(output.finish().empty());
}

// Calls `use` while this thread sends the line "first"; returns the frames that came of it.
CapturedOutput::Frames framesWhileSending(const std::function<void()>& use) {
  CapturedOutput output;
  appendDebugLog("first");
  sendBehindLogLines([&use](const std::vector<json>& lines) {
    EXPECT_EQ(textsOf(lines), Texts{"first"});
    use();
  });
  return output.finish();
}

TEST(SendBehindLogLines, KeepsOthersFromSendingMeanwhile) {
  const CapturedOutput::Frames frames = framesWhileSending([] {
    for (int i = 0; i < 60; ++i) appendDebugLog(std::to_string(i));
    sendBehindLogLines([](const std::vector<json>& lines) { EXPECT_TRUE(lines.empty()); });
  });
  EXPECT_TRUE(frames.empty());
  sendBehindLogLines(
      [](const std::vector<json>& lines) { EXPECT_EQ(textsOf(lines), numbered(0, 40)); });
  EXPECT_EQ(textsOf(takeDebugLogEvents(1000)), numbered(40, 60));
}

TEST(SendBehindLogLines, SendsBehindItWhatWasFlushedMeanwhileAtMost40Lines) {
  const CapturedOutput::Frames frames = framesWhileSending([] {
    for (int i = 0; i < 50; ++i) appendDebugLog(std::to_string(i), "trace", i == 0);
    emitPanelMessage("m", json::array());  // without lines ahead of it
  });
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(eventsIn({frames[0]}).size(), 1U);
  EXPECT_EQ(textsIn({frames[1]}), numbered(0, 40));
}

TEST(SendBehindLogLines, HoldsUpNobodyWhenNothingWaitsOrTheWriterFails) {
  CapturedOutput output;
  sendBehindLogLines([](const std::vector<json>& lines) {
    EXPECT_TRUE(lines.empty());
    appendDebugLog("0", "trace", true);
  });
  appendDebugLog("lost");
  EXPECT_THROW(sendBehindLogLines([](const auto&) { throw std::bad_alloc(); }), std::bad_alloc);
  appendDebugLog("1", "trace", true);
  EXPECT_EQ(textsIn(output.finish()), numbered(0, 2));
}

TEST(AppendDebugLog, DropsTheOldest200WhenFull) {
  (void)framesWhileSending([] {
    for (int i = 0; i < 800; ++i) appendDebugLog(std::to_string(i));
    EXPECT_EQ(textsOf(takeDebugLogEvents(1)), numbered(0, 1));  // all 800 were there; now 799
    appendDebugLog("800");
    EXPECT_EQ(textsOf(takeDebugLogEvents(1)), numbered(1, 2));  // again 800; now 799
    appendDebugLog("801");
    appendDebugLog("802");
    EXPECT_EQ(textsOf(takeDebugLogEvents(1000)), numbered(202, 803));
  });
}

}  // namespace
}  // namespace media::win::chrome_inspect
