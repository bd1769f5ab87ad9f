// What one failed allocation, anywhere, leaves behind: nothing that is wrong.

#include "channel/framing.h"
#include "channel/host_log.h"
#include "chat/turn_events.h"
#include "chat/turn_stream.h"
#include "host/dispatcher.h"
#include "support/captured_output.h"
#include "support/failing_new.h"
#include "support/json_replies.h"
#include "text/json_parse.h"
#include "text/json_view.h"

namespace media::win::chrome_inspect {
namespace {

const std::string longText(100, 'x');

TEST(OutOfMemory, ParsingNeverThrows) {
  const std::string texts[] = {
      R"({"a":[1,[2,{"b":")" + longText + R"("}]],"c":null})",
      R"(["\ud83d)" + longText + R"(","\ude00"])",
      R"({"a":[1,2)",
      std::string(1001, '['),
      "\"" + longText + "\xFF\"",
  };
  long failures = 0;
  for (const std::string& text : texts) {
    std::string ignored;
    json wanted;
    const ParseOutcome outcome = parseJson(text, wanted, ignored);
    failures += failEachAllocation([&] {
      json value;
      std::string error;
      ParseOutcome seen = ParseOutcome::invalid;
      EXPECT_NO_THROW(seen = parseJson(text, value, error));
      if (seen == ParseOutcome::ok) EXPECT_EQ(value, wanted);
      if (!FailingNew::happened()) EXPECT_EQ(seen, outcome);
    });
  }
  EXPECT_GT(failures, 0);
}

// Reads `text` as often as it takes, each time with a later allocation and all behind it failing,
// and returns how often it took.
long timesUntilRead(const std::string& text) {
  for (long times = 1;; ++times) {
    JsonDocument document;
    std::string error;
    ParseOutcome outcome = ParseOutcome::ok;
    bool failed = false;
    {
      const FailingNew failing(times - 1, FailingNew::Failure::lasting);
      try {
        outcome = readJson(text, document, error);
      } catch (const std::bad_alloc&) {  // as it should be
      }
      failed = FailingNew::happened();
    }
    EXPECT_EQ(outcome, ParseOutcome::ok) << times;
    if (!failed) return times;
  }
}

// A text of the browser that is invalid ends the host.
TEST(OutOfMemory, NoTextIsTakenForInvalid) {
  for (std::size_t size = 0; size < 16; ++size) {  // of which FailingNew passes over one
    EXPECT_GT(timesUntilRead(R"(["\ud83d)" + std::string(size, 'x') + longText + R"("])"), 1);
  }
}

// Calls `use` as failEachAllocation does and catches what the callers of the product's functions
// catch. Returns the frames of each call.
template <class Use>
std::vector<CapturedOutput::Frames> framesOfEachCall(const Use& use) {
  std::vector<CapturedOutput::Frames> calls;
  for (bool failed = true; failed;) {
    CapturedOutput output;
    try {
      const FailingNew failing(static_cast<long>(calls.size()));
      use();
      failed = FailingNew::happened();
    } catch (const std::exception&) {  // `failed` stays
    }
    calls.push_back(output.finish());
  }
  EXPECT_GT(calls.size(), 1U);
  return calls;
}

TEST(OutOfMemory, APanelMessageGetsOneReplyAtMost) {
  const json requests[] = {
      {{"kind", "ready"}, {"chromeRequestId", longText}},
      {{"kind", "noSuchKind" + longText}},
      {{"kind", "poll"}, {"chromeRequestId", longText}},
      {{"kind", json::array()}},
      {{"kind", "contextImportUrl"}, {"chromeRequestId", longText}},
  };
  for (const json& request : requests) {
    const JsonDocument message = documentOf(request);
    (void)handleMessage({});  // what is started once has been
    const auto calls = framesOfEachCall([&message] {
      answerPanelMessage(message.root());
      (void)writeHeldFrames();
    });
    for (const CapturedOutput::Frames& frames : calls) EXPECT_LE(frames.size(), 1U);
    EXPECT_EQ(calls.back().size(), 1U);
  }
}

TEST(OutOfMemory, AStreamIsTranslatedOrBrokenOff) {
  const std::string stream =
      "data: {\"choices\":[{\"delta\":{\"content\":\"" + longText +
      "\"}}],\"usage\":{\"total_tokens\":1}}\n\n"
      "data: {\"object\":\"morva.event\",\"type\":\"tool_result\",\"path\":\"" +
      longText + ".png\"}\n\ndata: {\"error\":\"" + longText + "\"}\n\n";
  const auto calls = framesOfEachCall([&stream] {
    TurnStream turn(std::make_shared<TurnEvents>(longText), longText);
    onStreamChunk(turn, std::string_view(stream).substr(0, 20));
    onStreamChunk(turn, std::string_view(stream).substr(20));
    finishStream(turn);
  });
  const std::vector<std::string> whole = eventsIn(calls.back());
  EXPECT_EQ(whole.size(), 4U);
  for (const CapturedOutput::Frames& frames : calls) {
    const std::vector<std::string> events = eventsIn(frames);
    ASSERT_LE(events.size(), whole.size());
    for (std::size_t i = 0; i < events.size(); ++i) EXPECT_EQ(events[i], whole[i]);
  }
}

TEST(OutOfMemory, ATurnThatBeganEndsOnce) {
  const auto calls = framesOfEachCall([] {
    const auto events = std::make_shared<TurnEvents>("chrome-" + longText);
    try {
      events->begin({{"name", longText}});
      events->succeed("c", longText, {{"total_tokens", longText}});
    } catch (const std::exception& failure) {
      events->fail(failure.what());
    }
  });
  for (const CapturedOutput::Frames& frames : calls) {
    std::size_t done = 0;
    for (const std::string& frame : frames)
      if (frame.find("agentDone") != frame.npos) ++done;
    EXPECT_EQ(done, frames.empty() ? 0U : 1U);
  }
  EXPECT_EQ(calls.back().size(), 5U);
}

TEST(OutOfMemory, TheLogGoesOn) {
  for (int i = 0; i < 19; ++i) appendDebugLog(longText);
  (void)framesOfEachCall([] {
    for (int i = 0; i < 20; ++i) appendDebugLog(longText);
  });
  (void)takeDebugLogEvents(1000);
  CapturedOutput output;
  for (int i = 0; i < 20; ++i) appendDebugLog(std::to_string(i));
  EXPECT_EQ(eventsIn(output.finish()).size(), 20U);
}

TEST(OutOfMemory, RepliesStayInOrder) {
  for (int round = 0; round < 300; ++round) {  // past the limit, so that the oldest give way too
    const std::string id = longText + std::to_string(round);
    (void)failEachAllocation([&id] {
      try {
        JsonDocument reply;
        std::string ignored;
        if (readJson("1", reply, ignored) == ParseOutcome::ok) storeReply(id, std::move(reply));
      } catch (const std::exception&) {  // as the reader does
      }
    });
    json reply;
    EXPECT_TRUE(waitForReply(id, 0, reply));
    EXPECT_FALSE(waitForReply(id, 0, reply));
    storeReply(id, 2);
  }
  json reply;
  EXPECT_FALSE(waitForReply(longText + "0", 0, reply));
  EXPECT_TRUE(waitForReply(longText + "299", 0, reply));
}

}  // namespace
}  // namespace media::win::chrome_inspect
