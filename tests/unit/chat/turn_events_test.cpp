#include "chat/turn_events.h"

#include "channel/event_batch.h"
#include "channel/framing.h"
#include "chat/text_events.h"
#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

std::string done(bool ok, const std::string& error) {
  return "agentDone " + json{"r", ok, error}.dump();
}

const std::string begun = R"(setBusy [true]; agentStarted [{"id":"r","name":"n"}])";
const std::string complete = R"(completeAssistantText [{"text":"all"}]; )";

const std::tuple<const char*, void (*)(TurnEvents&), std::string> useCases[] = {
    {"succeeds with its usage",
     [](TurnEvents& e) {
       e.succeed("c", "all", {{"total_tokens", 3}});
     },
     complete + R"(setTurnLlmUsage [{"total_tokens":3}]; )" + done(true, "")},
    {"fails", [](TurnEvents& e) { e.fail("x"); }, done(false, "x")},
    {"fails with what is no UTF-8", [](TurnEvents& e) { e.fail("a\xFF"); },
     done(false, "a\xEF\xBF\xBD")},
    {"fails with a long text", [](TurnEvents& e) { e.fail(std::string(5000, 'x')); },
     done(false, std::string(4096, 'x'))},
    {"is not forgotten",
     [](TurnEvents& e) {
       e.begin({{"name", "n"}});
     },
     begun + "; " + done(false, "agent turn failed")},
    {"never began", [](TurnEvents&) {}, ""},
    {"is cancelled before it begins",
     [](TurnEvents& e) {
       e.cancel();
       e.fail("its own end");
     },
     done(false, "its own end")},
    {"says nothing after its end",
     [](TurnEvents& e) {
       e.begin({{"name", "n"}});
       e.send("x", {1});
       e.cancel();
       e.send("x", {2});
       EventFrames frames;
       frames.begin() += "[3]";
       frames.end("x");
       e.send(frames);
       EXPECT_TRUE(frames.empty());
       e.succeed("c", "all", nullptr);
       e.fail("late");
       e.cancel();
     },
     begun + "; x [1]; " + done(false, "cancelled")},
    {"ends well once",
     [](TurnEvents& e) {
       e.succeed("c", "all", nullptr);
       e.cancel();
       e.succeed("c", "again", nullptr);
     },
     complete + done(true, "")},
};

TEST(TurnEvents, EndOnce) {
  for (const auto& [name, use, sent] : useCases) {
    SCOPED_TRACE(name);
    CapturedOutput output;
    {
      TurnEvents events("r");
      use(events);
    }
    EXPECT_EQ(briefEvents(output.finish()), sent);
  }
}

TEST(TurnEvents, LeaveOutUsageThatSaysNothing) {
  for (const json& usage : {json(nullptr), json::object(), json::array({1}), json("x"), json(5)}) {
    CapturedOutput output;
    TurnEvents("r").succeed("c", "all", usage);
    EXPECT_EQ(briefEvents(output.finish()), complete + done(true, "")) << usage;
  }
}

TEST(TurnEvents, EndWithNoneOnItsWay) {
  CapturedOutput output;
  TurnEvents events("r");
  events.begin({{"name", "n"}});
  TestThread sender([&events] {
    for (int i = 0; i < 2000; ++i) events.send("x", {i});
  });
  output.waitFor(50);
  events.cancel();
  sender.join();
  const CapturedOutput::Frames frames = output.finish();
  EXPECT_EQ(briefEvents({frames.back()}), done(false, "cancelled"));
}

// Of which the text is made.
const std::tuple<const char*, std::string> textCases[] = {
    {"letters", "x"},
    {"characters of three bytes", "\xE2\x82\xAC"},
    {"what is escaped", "\x01\x1F\b\f\n\r\t\"\\ /\x7F"},
};

json args(std::string_view piece, std::uint32_t index) {
  return json::array({{{"seq", index}, {"delta", piece}}});
}

// Sends a text and returns its frames, which hold it in order.
CapturedOutput::Frames framesOf(const std::string& text) {
  CapturedOutput output;
  TurnEvents turn("r");
  const std::uint32_t count = sendText(turn, "appendAssistantDelta", text, args);
  CapturedOutput::Frames frames = output.finish();
  EXPECT_EQ(frames.size(), count);
  std::string joined;
  std::uint32_t seq = 0;
  for (const std::string& frame : frames) {
    const json message = json::parse(frame);
    for (const json& event : message.at("events")) {
      const json& argument = event.at("args").at(0);
      EXPECT_EQ(argument.at("seq"), seq++);
      joined += argument.at("delta").get_ref<const std::string&>();
    }
  }
  EXPECT_TRUE(joined == text);
  return frames;
}

TEST(SendText, SplitsWhatDoesNotFitIntoAFrame) {
  limitFramesForBrowser();
  const std::size_t room = maxArgsBytes("appendAssistantDelta") - args("", 0).dump().size();
  for (const auto& [name, unit] : textCases) {
    SCOPED_TRACE(name);
    const std::size_t unitBytes = dumpJson(unit).size() - 2;
    std::string text(room % unitBytes, 'x');
    for (std::size_t i = 0; i < room / unitBytes; ++i) text += unit;
    const CapturedOutput::Frames whole = framesOf(text);
    ASSERT_EQ(whole.size(), 1U);
    EXPECT_EQ(whole[0].size(), maxBrowserBody);
    EXPECT_EQ(framesOf(text + "x").size(), 2U);
    const CapturedOutput::Frames many = framesOf(text + text);
    EXPECT_EQ(many.size(), 3U);
    for (const std::string& frame : many) EXPECT_LE(frame.size(), maxBrowserBody);
  }
}

TEST(SendText, LeavesATextWholeWithoutABrowserAndWhereNoPieceWouldFit) {
  EXPECT_EQ(framesOf(std::string(2 * maxBrowserBody, 'x')).size(), 1U);
  EXPECT_EQ(framesOf("").size(), 1U);
  limitFramesForBrowser();
  CapturedOutput output;
  TurnEvents turn("r");
  const auto piecesWithRoomFor = [&turn](std::size_t bytes) {
    const std::string id(maxArgsBytes("x") - json{"", ""}.dump().size() - bytes, 'i');
    return sendText(turn, "x", std::string(10'000, 'x'),
                    [&id](std::string_view piece, std::uint32_t) {
                      return json::array({id, piece});
                    });
  };
  EXPECT_EQ(piecesWithRoomFor(8191), 1U);
  EXPECT_EQ(piecesWithRoomFor(8192), 2U);
  const CapturedOutput::Frames frames = output.finish();
  EXPECT_EQ(frames.size(), 3U);
  EXPECT_NE(frames.at(0).find("event x left out"), std::string::npos);
}

}  // namespace
}  // namespace media::win::chrome_inspect
