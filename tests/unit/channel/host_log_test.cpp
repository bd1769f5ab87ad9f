#include "channel/host_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "channel/panel_events.h"
#include "support/blocked_output.h"
#include "support/captured_output.h"
#include "support/gate.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

using Texts = std::vector<std::string>;

Texts textsOf(const std::vector<json>& lines) {
  std::vector<std::string> texts;
  for (const json& line : lines) texts.push_back(line.at(0).at("text"));
  return texts;
}

std::vector<std::string> textsIn(const std::vector<std::string>& frames) {
  std::vector<std::string> texts;
  for (const std::string& event : eventsIn(frames)) {
    texts.push_back(json::parse(event).at("args").at(0).at("text"));
  }
  return texts;
}

std::vector<std::string> numbered(int from, int to) {
  std::vector<std::string> texts;
  for (int i = from; i < to; ++i) texts.push_back(std::to_string(i));
  return texts;
}

TEST(TakeDebugLogEvents, GivesTheOldestFirst) {
  for (int i = 0; i < 5; ++i) appendDebugLog(std::to_string(i), i == 3 ? "warn" : "");
  const std::vector<json> lines = takeDebugLogEvents(4);
  EXPECT_EQ(textsOf(lines), numbered(0, 4));
  EXPECT_EQ(lines[0].dump(), R"([{"level":"trace","source":"agent","text":"0"}])");
  EXPECT_EQ(lines[3].dump(), R"([{"level":"warn","source":"agent","text":"3"}])");
  EXPECT_EQ(textsOf(takeDebugLogEvents(40)), numbered(4, 5));
  EXPECT_TRUE(takeDebugLogEvents(40).empty());
}

TEST(AppendDebugLog, CutsTextsAt1024Bytes) {
  const struct {
    const char* name;
    std::string text;
    std::string kept;
  } cases[] = {
      {"the longest", std::string(1024, 'x'), std::string(1024, 'x')},
      {"longer", std::string(5000, 'x'), std::string(1024, 'x')},
      {"a character across the end", std::string(1023, 'x') + "\xC3\xA9", std::string(1023, 'x')},
      {"what is not UTF-8", "a\xFF", "a\xEF\xBF\xBD"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    appendDebugLog(c.text);
    EXPECT_EQ(textsOf(takeDebugLogEvents(1)), std::vector<std::string>{c.kept});
  }
}

TEST(AppendDebugLog, SendsWithThe20thLine) {
  CapturedOutput output;
  for (int i = 0; i < 19; ++i) appendDebugLog(std::to_string(i));
  appendDebugLog("19");
  EXPECT_TRUE(takeDebugLogEvents(40).empty());
  for (int i = 20; i < 39; ++i) appendDebugLog(std::to_string(i));
  EXPECT_EQ(takeDebugLogEvents(40).size(), 19U);
  const std::vector<std::string> frames = output.finish();
  EXPECT_EQ(frames.size(), 1U);
  EXPECT_EQ(textsIn(frames), numbered(0, 20));
}

TEST(AppendDebugLog, SendsAtOnceWhenToldTo) {
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

// Two threads that want to send at once while the browser does not read: one is stuck in its batch,
// the other leaves its line to the first and goes on.
class HeldLog {
 public:
  HeldLog() { oneIsDone_.wait(); }
  ~HeldLog() { release(); }
  HeldLog(const HeldLog&) = delete;
  HeldLog& operator=(const HeldLog&) = delete;

  int done() const { return done_; }
  void release() {
    output.resume();
    first_.join();
    second_.join();
  }

  BlockedOutput output;

 private:
  void flush() {
    appendDebugLog("flushed", "trace", true);
    ++done_;
    oneIsDone_.open();
  }

  std::atomic<int> done_ = 0;
  Gate oneIsDone_;
  TestThread first_{[this] { flush(); }};
  TestThread second_{[this] { flush(); }};
};

TEST(AppendDebugLog, DoesNotWaitForABatchThatAnotherThreadSends) {
  HeldLog held;  // got here: one of the two did not wait
  EXPECT_EQ(held.done(), 1);
  for (int i = 0; i < 100; ++i) appendDebugLog(std::to_string(i), "trace", true);
  EXPECT_EQ(held.done(), 1);
  held.release();
  std::vector<std::string> texts = textsIn(held.output.finish());
  for (const std::string& text : textsOf(takeDebugLogEvents(1000))) texts.push_back(text);
  std::vector<std::string> wanted = {"flushed", "flushed"};
  for (const std::string& text : numbered(0, 100)) wanted.push_back(text);
  EXPECT_EQ(texts, wanted);
}

TEST(AppendDebugLog, SendsWhatWasFlushedDuringABatchBehindIt) {
  HeldLog held;
  appendDebugLog("last", "trace", true);
  held.release();
  const std::vector<std::string> frames = held.output.finish();
  EXPECT_EQ(frames.size(), 2U);
  EXPECT_EQ(textsIn(frames), (std::vector<std::string>{"flushed", "flushed", "last"}));
  EXPECT_TRUE(takeDebugLogEvents(40).empty());
}

TEST(AppendDebugLog, DropsTheOldest200WhenFull) {
  HeldLog held;
  (void)takeDebugLogEvents(1000);
  for (int i = 0; i < 800; ++i) appendDebugLog(std::to_string(i));
  EXPECT_EQ(textsOf(takeDebugLogEvents(1)), numbered(0, 1));  // all 800 were there; now 799
  appendDebugLog("800");
  EXPECT_EQ(textsOf(takeDebugLogEvents(1)), numbered(1, 2));  // again 800; now 799
  appendDebugLog("801");
  appendDebugLog("802");
  EXPECT_EQ(textsOf(takeDebugLogEvents(1000)), numbered(202, 803));
}

TEST(AppendDebugLog, PutsAtMost40LinesIntoABatch) {
  HeldLog held;
  for (int i = 0; i < 100; ++i) appendDebugLog(std::to_string(i), "trace", true);
  held.release();
  const std::vector<std::string> frames = held.output.finish();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(textsIn({frames[0]}).size(), 1U);
  EXPECT_EQ(textsIn({frames[1]}).size(), 40U);
}

TEST(QueueDebugLog, NeverWaitsForTheBrowserAndKeepsTheOrder) {
  constexpr int lineCount = 20'000;
  constexpr int lastThatIsSent = lineCount - static_cast<int>(logLinesThatSend);
  BlockedOutput output;
  for (int i = 0; i < lineCount; ++i) queueDebugLog(std::to_string(i));
  output.resume();  // got here: nothing waited
  (void)output.waitUntil([](const CapturedOutput::Frames& frames) {
    return frames.size() > 1 && std::stoi(textsIn({frames.back()}).back()) >= lastThatIsSent;
  });
  std::vector<std::string> texts = textsIn(output.finish());
  for (const std::string& text : textsOf(takeDebugLogEvents(1000))) texts.push_back(text);
  EXPECT_LT(texts.size(), 1000U);  // the queue, and one batch that was on its way
  int previous = -1;
  for (const std::string& text : texts) {
    EXPECT_GT(std::stoi(text), previous);
    previous = std::stoi(text);
  }
  EXPECT_EQ(previous, lineCount - 1);
}

TEST(QueueDebugLog, LeavesSendingToAnotherThread) {
  CapturedOutput output;
  for (int i = 0; i < 20; ++i) queueDebugLog(std::to_string(i), i == 0 ? "" : "warn");
  const CapturedOutput::Frames frames = output.waitFor(1);
  EXPECT_EQ(textsIn(frames), numbered(0, 20));
  EXPECT_NE(frames[0].find(R"({"level":"trace","source":"agent","text":"0"})"), std::string::npos);
  EXPECT_NE(frames[0].find(R"({"level":"warn","source":"agent","text":"1"})"), std::string::npos);
}

TEST(QueueDebugLog, LeavesFewLinesForTheNextEvent) {
  CapturedOutput output;
  for (int i = 0; i < 19; ++i) queueDebugLog(std::to_string(i));
  EXPECT_EQ(textsOf(takeDebugLogEvents(40)), numbered(0, 19));
  EXPECT_TRUE(output.finish().empty());
}

TEST(LogBatch, KeepsOthersFromSendingWhileItLives) {
  CapturedOutput output;
  appendDebugLog("0");
  appendDebugLog("1");
  {
    const LogBatch batch;
    EXPECT_EQ(textsOf(batch.lines()), numbered(0, 2));
    for (int i = 2; i < 60; ++i) appendDebugLog(std::to_string(i));
    EXPECT_TRUE(LogBatch().lines().empty());
  }
  EXPECT_EQ(textsOf(LogBatch().lines()), numbered(2, 42));
  EXPECT_EQ(textsOf(takeDebugLogEvents(1000)), numbered(42, 60));
  EXPECT_TRUE(output.finish().empty());
}

TEST(LogBatch, SendsBehindItselfWhatWasFlushedMeanwhile) {
  CapturedOutput output;
  appendDebugLog("0");
  {
    const LogBatch batch;
    appendDebugLog("1", "trace", true);
    emitPanelMessage("m", json::array());  // takes no line ahead
  }
  EXPECT_EQ(textsOf(takeDebugLogEvents(40)), Texts{});
  const CapturedOutput::Frames frames = output.finish();
  ASSERT_EQ(frames.size(), 2U);
  EXPECT_EQ(eventsIn({frames[0]}).size(), 1U);
  EXPECT_EQ(textsIn({frames[1]}), numbered(1, 2));
}

TEST(LogBatch, IsNoneWhenNothingWaits) {
  CapturedOutput output;
  const LogBatch batch;
  EXPECT_TRUE(batch.lines().empty());
  appendDebugLog("0", "trace", true);  // it holds up nobody
  EXPECT_EQ(output.finish().size(), 1U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
