#include "chat/text_events.h"

#include "channel/event_batch.h"
#include "channel/framing.h"
#include "support/captured_output.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

struct TextCase {
  const char* name;
  std::string unit;  // of which the text is made
};

const TextCase textCases[] = {
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
  const CapturedOutput::Frames frames = output.finish();
  EXPECT_EQ(frames.size(), count);
  std::string joined;
  std::uint32_t seq = 0;
  for (const std::string& event : eventsIn(frames)) {
    const json argument = json::parse(event).at("args").at(0);
    EXPECT_EQ(argument.at("seq"), seq++);
    joined += argument.at("delta").get<std::string>();
  }
  EXPECT_TRUE(joined == text);
  return frames;
}

TEST(SendText, SplitsWhatDoesNotFitIntoAFrame) {
  limitFramesForBrowser();
  const std::size_t room = maxArgsBytes("appendAssistantDelta") - args("", 0).dump().size();
  for (const TextCase& c : textCases) {
    SCOPED_TRACE(c.name);
    const std::size_t unitBytes = dumpJson(c.unit).size() - 2;
    std::string text(room % unitBytes, 'x');
    for (std::size_t i = 0; i < room / unitBytes; ++i) text += c.unit;
    const CapturedOutput::Frames whole = framesOf(text);
    ASSERT_EQ(whole.size(), 1U);
    EXPECT_EQ(whole[0].size(), maxBrowserBody);
    EXPECT_EQ(framesOf(text + "x").size(), 2U);
    const CapturedOutput::Frames many = framesOf(text + text + text + text);
    EXPECT_EQ(many.size(), 5U);
    for (const std::string& frame : many) EXPECT_LE(frame.size(), maxBrowserBody);
  }
}

TEST(SendText, LeavesATextWholeWithoutABrowserAndWhereNoPieceWouldFit) {
  EXPECT_EQ(framesOf(std::string(4 * maxBrowserBody, 'x')).size(), 1U);
  EXPECT_EQ(framesOf("").size(), 1U);
  limitFramesForBrowser();
  CapturedOutput output;
  TurnEvents turn("r");
  const std::string id(maxBrowserBody - 4096, 'i');
  EXPECT_EQ(sendText(turn, "x", std::string(100'000, 'x'),
                     [&id](std::string_view piece, std::uint32_t) {
                       return json::array({id, piece});
                     }),
            1U);
  EXPECT_NE(output.finish().at(0).find("event x left out"), std::string::npos);
}

}  // namespace
}  // namespace media::win::chrome_inspect
