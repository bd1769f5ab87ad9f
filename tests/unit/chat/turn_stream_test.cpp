#include "chat/turn_stream.h"

#include "channel/framing.h"
#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TurnStream newStream() { return {std::make_shared<TurnEvents>("r"), "c"}; }

std::string delta(int seq, const std::string& text) {
  return "appendAssistantDelta " + json{{{"delta", text}, {"seq", seq}}}.dump();
}

std::string errorLine(const std::string& text) {
  return "appendText " + json{{{"role", "error"}, {"text", text}}}.dump();
}

// Translates one block, expects these events of it, and returns the state after it.
TurnStream translated(const std::string& block, const std::string& events) {
  SCOPED_TRACE(block.substr(0, 200));
  TurnStream stream = newStream();
  CapturedOutput output;
  translateEventBlock(stream, block);
  EXPECT_EQ(briefEvents(output.finish()), events);
  return stream;
}

const char* const silentBlocks[] = {
    "",
    ": ping",
    "event: x",
    "data:",
    "event: e\nid: 5\ndata: [\n:c\ndata: ]",
    "data: [1]",
    R"(data: {"a":1})",
    R"(data: {"choices":null})",
    R"(data: {"choices":{"delta":{"content":"x"}}})",
    R"(data: {"choices":[5]})",
    R"(data: {"choices":[{}]})",
    R"(data: {"choices":[{},{"delta":{"content":"x"}}]})",
    R"(data: {"choices":[{"delta":"x"}]})",
    R"(data: {"choices":[{"delta":null}]})",
    R"(data: {"choices":[{"delta":{"content":""}}]})",
    R"(data: {"choices":[{"delta":{"role":"assistant","content":null}}]})",
    R"(data: {"choices":[{"finish_reason":null}]})",
    R"(data: {"choices":[{}],"usage":{"tokens":1}})",
    R"(data: {"choices":[{}],"usage":["total_tokens"]})",
    R"(data: {"choices":[],"usage":{"total_tokens":3}})",
    R"(data: {"object":"morva.event","type":"x","choices":[{"delta":{"content":"x"}}]})",
};

TEST(TranslateEventBlock, PassesOverWhatSaysNothing) {
  for (const char* const block : silentBlocks) {
    const TurnStream stream = translated(block, "");
    EXPECT_EQ(stream.assistantText, "") << block;
    EXPECT_FALSE(stream.done) << block;
    EXPECT_EQ(stream.usage, nullptr) << block;
  }
}

TEST(TranslateEventBlock, NoticesTheEnd) {
  for (const char* const block :
       {"data: [DONE]", "data:[DONE]", R"(data: {"choices":[{"finish_reason":"stop"}]})",
        R"(data: {"choices":[{"finish_reason":""}]})",
        R"(data: {"error":null,"choices":[{"finish_reason":"stop"}]})"}) {
    EXPECT_TRUE(translated(block, "").done) << block;
  }
  EXPECT_FALSE(translated("data:  []", "").done);  // two blanks: JSON
}

const std::tuple<std::string, std::string> contentCases[] = {
    {R"(data: {"choices":[{"delta":{"content":"Hi"}}]})", "Hi"},
    {R"(data:{"choices":[{"delta":{"content":"Hi"}}]})", "Hi"},
    {"data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"Hi\"}}]}", "Hi"},
    {"data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\r", "a"},
    {R"(data: {"error":null,"choices":[{"delta":{"content":"x"}}]})", "x"},
    {R"(data: {"object":null,"choices":[{"delta":{"content":"x"}}]})", "x"},
    {R"(data: {"object":"morva.events","choices":[{"delta":{"content":"x"}}]})", "x"},
    {R"(data: {"choices":[{"delta":{"content":"\ud83d"}}]})", "\xEF\xBF\xBD"},
    {R"(data: {"choices":[{"delta":{"content":"a\u0000b"}}]})", "a\0b"s},
};

TEST(TranslateEventBlock, ShowsAndCollectsTheContent) {
  for (const auto& [block, text] : contentCases) {
    const TurnStream stream = translated(block, delta(1, text));
    EXPECT_EQ(stream.assistantText, text);
    EXPECT_EQ(stream.seq, 1U);
    EXPECT_FALSE(stream.done);
  }
}

const std::tuple<const char*, const char*> usageCases[] = {
    {R"({"choices":[{}],"usage":{"prompt_tokens":0}})", R"({"prompt_tokens":0})"},
    {R"({"choices":[{}],"usage":{"completion_tokens":null}})", R"({"completion_tokens":null})"},
    {R"({"choices":[{}],"usage":{"total_tokens":3,"z":1}})", R"({"total_tokens":3,"z":1})"},
};

TEST(TranslateEventBlock, KeepsTheLastUsage) {
  TurnStream stream = newStream();
  for (const auto& [data, usage] : usageCases) {
    translateEventBlock(stream, "data: "s + data);
    EXPECT_EQ(stream.usage.dump(), usage);
  }
  translateEventBlock(stream, R"(data: {"choices":[{}],"usage":{}})");
  translateEventBlock(stream, R"(data: {"choices":[{}],"usage":null})");
  EXPECT_EQ(stream.usage.dump(), std::get<1>(usageCases[2]));
  const TurnStream all =
      translated(R"(data: {"choices":[{"delta":{"content":"x"},"finish_reason":"stop"}],)"
                 R"("usage":{"total_tokens":3}})",
                 delta(1, "x"));
  EXPECT_TRUE(all.done);
  EXPECT_EQ(all.usage.dump(), R"({"total_tokens":3})");
}

const std::tuple<const char*, const char*> errorCases[] = {
    {R"({"message":"no quota"})", "no quota"},
    {R"({})", "agent failed"},
    {R"({"message":null})", "agent failed"},
    {R"({"message":""})", ""},
    {R"("boom")", "\"boom\""},
    {"5", "5"},
    {"false", "false"},
    {R"(["a",{"b":1}])", R"(["a",{"b":1}])"},
};

TEST(TranslateEventBlock, ShowsAnErrorAndNothingBesideIt) {
  for (const auto& [error, text] : errorCases) {
    const std::string rest = R"(,"object":"morva.event","type":"thinking",)"
                             R"("choices":[{"delta":{"content":"x"}}],"usage":{"total_tokens":9}})";
    const TurnStream stream = translated("data: {\"error\":"s + error + rest, errorLine(text));
    EXPECT_TRUE(stream.done);
    EXPECT_EQ(stream.assistantText, "");
    EXPECT_EQ(stream.usage, nullptr);
  }
}

TEST(TranslateEventBlock, HandsOnAgentEvents) {
  (void)translated(R"(data: {"object":"morva.event","type":"thinking","text":"hm"})",
                   R"(appendThinking [{"text":"hm"}])");
}

const std::string wrongType = "[json.exception.type_error.302] type must be string, but is number";

// With the beginning of the text.
const std::tuple<const char*, std::string, const char*> failureCases[] = {
    {"no JSON", "{", "[json.exception.parse_error.101] parse error"},
    {"a comment", "/*c*/ {}", "[json.exception.parse_error.101] parse error"},
    {"not UTF-8", "{\"a\":\"\xFF\"}", "[json.exception.parse_error.101] parse error"},
    {"two lines are not joined without a line feed", "1\ndata: 2",
     "[json.exception.parse_error.101] parse error at line 2"},
    {"too large a number", "1e999", "[json.exception.out_of_range.406] number overflow"},
    {"nested too deeply", std::string(1001, '[') + std::string(1001, ']'),
     "json nested too deeply"},
    {"content of another type", R"({"choices":[{"delta":{"content":5}}]})", wrongType.c_str()},
    {"an object of another type", R"({"object":5})", wrongType.c_str()},
    {"a message of another type", R"({"error":{"message":5}})", wrongType.c_str()},
};

TEST(TranslateEventBlock, ThrowsForWhatCannotBeUnderstood) {
  for (const auto& [name, data, text] : failureCases) {
    SCOPED_TRACE(name);
    TurnStream stream = newStream();
    CapturedOutput output;
    std::string thrown = "nothing";
    try {
      translateEventBlock(stream, "data: " + data);
    } catch (const std::exception& failure) {
      thrown = failure.what();
    }
    EXPECT_TRUE(thrown.starts_with(text)) << thrown;
    EXPECT_TRUE(output.finish().empty());
  }
}

TEST(TranslateEventBlock, ResetsDoneOnlyWithoutData) {
  TurnStream stream = newStream();
  stream.done = true;
  translateEventBlock(stream, "data: [1]");
  EXPECT_TRUE(stream.done);
  translateEventBlock(stream, ": ping");
  EXPECT_FALSE(stream.done);
}

const std::string wholeStream =
    ": hello\n\n"
    "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\",\"content\":null}}]}\n\n"
    "event: delta\ndata: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n\n"
    "data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"\xE2\x82\xAC\"}}]}\n\n"
    "data: {\"choices\":[{\"finish_reason\":\"stop\"}]}\n\n"
    "data: [DONE]\n\n";

TEST(OnStreamChunk, SendsTheSameEventsForEveryCut) {
  for (std::size_t cut = 0; cut <= wholeStream.size(); ++cut) {
    TurnStream stream = newStream();
    CapturedOutput output;
    onStreamChunk(stream, wholeStream.substr(0, cut));
    for (const char byte : wholeStream.substr(cut)) onStreamChunk(stream, {&byte, 1});
    finishStream(stream);
    ASSERT_EQ(briefEvents(output.finish()), delta(1, "a") + "; " + delta(2, "\xE2\x82\xAC")) << cut;
    ASSERT_TRUE(stream.done);
    ASSERT_EQ(stream.assistantText, "a\xE2\x82\xAC");
  }
}

const std::string block = R"(data: {"choices":[{"delta":{"content":"a"}}]})";

const std::tuple<const char*, std::string, std::string, bool> endCases[] = {
    {"a last block without its blank line", block, delta(1, "a"), false},
    {"with one line feed", block + "\n", delta(1, "a"), false},
    {"what comes behind the end is left", "data: [DONE]\n\ndata: {", "", true},
    {"an event behind the end", "data: [DONE]\n\n" + block + "\n\n", delta(1, "a"), true},
    {"what comes behind a finish is left",
     "data: {\"choices\":[{\"finish_reason\":\"stop\"}]}\n\ndata: {", "", true},
    {"what comes behind an error is left", "data: {\"error\":5}\n\ndata: {", errorLine("5"), true},
    {"a comment behind the end", "data: [DONE]\n\n: ping\n\n", "", false},
    {"CR LF separates no blocks", "data: [\r\n\r\ndata: ]\r\n\r\n", "", false},
    {"nothing", "", "", false},
};

TEST(FinishStream, TranslatesWhatIsLeftUnlessDone) {
  for (const auto& [name, chunk, events, done] : endCases) {
    SCOPED_TRACE(name);
    TurnStream stream = newStream();
    CapturedOutput output;
    onStreamChunk(stream, chunk);
    finishStream(stream);
    EXPECT_EQ(briefEvents(output.finish()), events);
    EXPECT_EQ(stream.done, done);
  }
}

TEST(TranslateEventBlock, EndsAnAnswerWithoutEnd) {
  TurnStream stream = newStream();
  stream.assistantText.assign(maxAssistantText - 1, 'x');
  translateEventBlock(stream, block);
  EXPECT_EQ(stream.assistantText.size(), 64U * 1024 * 1024);
  try {
    translateEventBlock(stream, block);
    ADD_FAILURE() << "one byte more was taken";
  } catch (const std::length_error& error) {
    EXPECT_STREQ(error.what(), "agent answer too large");
  }
}

TEST(TranslateEventBlock, CountsThePiecesOfALongDelta) {
  limitFramesForBrowser();
  TurnStream stream = newStream();
  CapturedOutput output;
  const json content = {{"content", std::string(2 * maxBrowserBody, 'x')}};
  const std::string data = "data: " + json{{"choices", {{{"delta", content}}}}}.dump();
  for (int i = 0; i < 2; ++i) translateEventBlock(stream, data);
  EXPECT_EQ(stream.seq, 6U);
  std::uint32_t seq = 0;
  for (const std::string& event : eventsIn(output.finish())) {
    EXPECT_EQ(json::parse(event).at("args").at(0).at("seq"), ++seq);
  }
  EXPECT_EQ(seq, stream.seq);
}

}  // namespace
}  // namespace media::win::chrome_inspect
