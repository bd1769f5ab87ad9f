#include "chat/turn_stream.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "channel/framing.h"
#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using namespace std::string_literals;
using Events = std::vector<std::string>;

TurnStream newStream() {
  TurnStream stream;
  stream.runId = "r";
  stream.chatSessionId = "c";
  return stream;
}

std::string delta(int seq, const std::string& text) {
  return R"({"args":[{"chatSessionId":"c","delta":)" + json(text).dump() +
         R"(,"runId":"r","seq":)" + std::to_string(seq) + R"(}],"method":"appendAssistantDelta"})";
}

std::string errorLine(const std::string& text) {
  return R"({"args":[{"role":"error","text":)" + json(text).dump() + R"(}],"method":"appendText"})";
}

struct BlockCase {
  const char* name;
  std::string block;
  Events events;
  std::string text;  // the assistant's text afterwards
  bool done;         // afterwards; before, it is false
  std::string usage = "null";
};

const BlockCase blockCases[] = {
    {"nothing", "", {}, "", false},
    {"a comment", ": ping", {}, "", false},
    {"only an event name", "event: x", {}, "", false},
    {"empty data", "data:", {}, "", false},
    {"the end", "data: [DONE]", {}, "", true},
    {"the end without a blank", "data:[DONE]", {}, "", true},
    {"the end with two blanks is no end but JSON", "data:  []", {}, "", false},
    {"a delta", R"(data: {"choices":[{"delta":{"content":"Hi"}}]})", {delta(1, "Hi")}, "Hi", false},
    {"a delta without a blank",
     R"(data:{"choices":[{"delta":{"content":"Hi"}}]})",
     {delta(1, "Hi")},
     "Hi",
     false},
    {"data in two lines",
     "data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"Hi\"}}]}",
     {delta(1, "Hi")},
     "Hi",
     false},
    {"lines between the data", "event: e\nid: 5\ndata: [\n:c\ndata: ]", {}, "", false},
    {"carriage returns",
     "data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\r",
     {delta(1, "a")},
     "a",
     false},
    {"null content, as streams begin",
     R"(data: {"choices":[{"delta":{"role":"assistant","content":null}}]})",
     {},
     "",
     false},
    {"empty content", R"(data: {"choices":[{"delta":{"content":""}}]})", {}, "", false},
    {"no delta", R"(data: {"choices":[{}]})", {}, "", false},
    {"a delta that is no object", R"(data: {"choices":[{"delta":"x"}]})", {}, "", false},
    {"a choice that is no object", R"(data: {"choices":[5]})", {}, "", false},
    {"a null delta", R"(data: {"choices":[{"delta":null}]})", {}, "", false},
    {"no choices", R"(data: {"a":1})", {}, "", false},
    {"choices that are no array", R"(data: {"choices":{"delta":{"content":"x"}}})", {}, "", false},
    {"null choices", R"(data: {"choices":null})", {}, "", false},
    {"only the first choice", R"(data: {"choices":[{},{"delta":{"content":"x"}}]})", {}, "", false},
    {"no object", "data: [1]", {}, "", false},
    {"a string", "data: \"x\"", {}, "", false},
    {"finished", R"(data: {"choices":[{"finish_reason":"stop"}]})", {}, "", true},
    {"not finished", R"(data: {"choices":[{"finish_reason":null}]})", {}, "", false},
    {"finished with an empty reason", R"(data: {"choices":[{"finish_reason":""}]})", {}, "", true},
    {"delta, usage and end",
     R"(data: {"choices":[{"delta":{"content":"x"},"finish_reason":"stop"}],"usage":{"total_tokens":3,"z":1}})",
     {delta(1, "x")},
     "x",
     true,
     R"({"total_tokens":3,"z":1})"},
    {"prompt tokens",
     R"(data: {"choices":[{}],"usage":{"prompt_tokens":0}})",
     {},
     "",
     false,
     R"({"prompt_tokens":0})"},
    {"completion tokens",
     R"(data: {"choices":[{}],"usage":{"completion_tokens":null}})",
     {},
     "",
     false,
     R"({"completion_tokens":null})"},
    {"usage without tokens", R"(data: {"choices":[{}],"usage":{"tokens":1}})", {}, "", false},
    {"usage that is no object",
     R"(data: {"choices":[{}],"usage":["total_tokens"]})",
     {},
     "",
     false},
    {"usage with empty choices",
     R"(data: {"choices":[],"usage":{"total_tokens":3}})",
     {},
     "",
     false},
    {"an error object",
     R"(data: {"error":{"message":"no quota"}})",
     {errorLine("no quota")},
     "",
     true},
    {"an error without message", R"(data: {"error":{}})", {errorLine("agent failed")}, "", true},
    {"an error with a null message",
     R"(data: {"error":{"message":null}})",
     {errorLine("agent failed")},
     "",
     true},
    {"an error with an empty message",
     R"(data: {"error":{"message":""}})",
     {errorLine("")},
     "",
     true},
    {"an error string keeps its quotes",
     R"(data: {"error":"boom"})",
     {errorLine("\"boom\"")},
     "",
     true},
    {"an error number", R"(data: {"error":5})", {errorLine("5")}, "", true},
    {"an error of false", R"(data: {"error":false})", {errorLine("false")}, "", true},
    {"beside an error nothing counts",
     R"(data: {"error":5,"choices":[{"delta":{"content":"x"}}],"usage":{"total_tokens":9}})",
     {errorLine("5")},
     "",
     true},
    {"a null error is none",
     R"(data: {"error":null,"choices":[{"delta":{"content":"x"}}]})",
     {delta(1, "x")},
     "x",
     false},
    {"an error goes before an agent event",
     R"(data: {"object":"morva.event","type":"thinking","error":1})",
     {errorLine("1")},
     "",
     true},
    {"an agent event",
     R"(data: {"object":"morva.event","type":"thinking","text":"hm"})",
     {R"({"args":[{"chatSessionId":"c","runId":"r","text":"hm"}],"method":"appendThinking"})"},
     "",
     false},
    {"an agent event's choices do not count",
     R"(data: {"object":"morva.event","type":"x","choices":[{"delta":{"content":"x"}}]})",
     {},
     "",
     false},
    {"another object",
     R"(data: {"object":"morva.events","choices":[{"delta":{"content":"x"}}]})",
     {delta(1, "x")},
     "x",
     false},
    {"a null object",
     R"(data: {"object":null,"choices":[{"delta":{"content":"x"}}]})",
     {delta(1, "x")},
     "x",
     false},
    {"half an emoji",
     R"(data: {"choices":[{"delta":{"content":"\ud83d"}}]})",
     {delta(1, "\xEF\xBF\xBD")},
     "\xEF\xBF\xBD",
     false},
    {"a NUL in a text",
     R"(data: {"choices":[{"delta":{"content":"a\u0000b"}}]})",
     {delta(1, "a\0b"s)},
     "a\0b"s,
     false},
    {"an error that is a list",
     R"(data: {"error":["a",{"b":1}]})",
     {errorLine(R"(["a",{"b":1}])")},
     "",
     true},
};

TEST(TranslateEventBlock, TranslatesEachKindOfBlock) {
  for (const BlockCase& c : blockCases) {
    SCOPED_TRACE(c.name);
    TurnStream stream = newStream();
    CapturedOutput output;
    translateEventBlock(stream, c.block);
    EXPECT_EQ(eventsIn(output.finish()), c.events);
    EXPECT_EQ(stream.assistantText, c.text);
    EXPECT_EQ(stream.done, c.done);
    EXPECT_EQ(stream.usage.dump(), c.usage);
    EXPECT_EQ(stream.seq, c.text.empty() ? 0U : 1U);
  }
}

TEST(TranslateEventBlock, SendsWholeFrames) {
  TurnStream stream = newStream();
  CapturedOutput output;
  translateEventBlock(stream, R"(data: {"choices":[{"delta":{"content":"Hi"}}]})");
  EXPECT_EQ(output.finish(),
            Events{R"({"events":[{"args":[{"chatSessionId":"c","delta":"Hi","runId":"r","seq":1}],)"
                   R"("method":"appendAssistantDelta"}],"kind":"hostChatEvents",)"
                   R"("source":"morva-chat"})"});
}

struct FailureCase {
  const char* name;
  std::string data;
  const char* text;  // a beginning
};

const FailureCase failureCases[] = {
    {"no JSON", "{", "[json.exception.parse_error.101] parse error"},
    {"a comment", "/*c*/ {}", "[json.exception.parse_error.101] parse error"},
    {"not UTF-8", "{\"a\":\"\xFF\"}", "[json.exception.parse_error.101] parse error"},
    {"two lines are not joined without a line feed", "1\ndata: 2",
     "[json.exception.parse_error.101] parse error at line 2"},
    {"too large a number", "1e999", "[json.exception.out_of_range.406] number overflow"},
    {"nested too deeply", std::string(1001, '[') + std::string(1001, ']'),
     "json nested too deeply"},
    {"content of another type", R"({"choices":[{"delta":{"content":5}}]})",
     "[json.exception.type_error.302] type must be string, but is number"},
    {"an object of another type", R"({"object":5})",
     "[json.exception.type_error.302] type must be string, but is number"},
    {"a message of another type", R"({"error":{"message":5}})",
     "[json.exception.type_error.302] type must be string, but is number"},
};

TEST(TranslateEventBlock, ThrowsForWhatCannotBeUnderstood) {
  for (const FailureCase& c : failureCases) {
    SCOPED_TRACE(c.name);
    TurnStream stream = newStream();
    CapturedOutput output;
    std::string text = "nothing thrown";
    try {
      translateEventBlock(stream, "data: " + c.data);
    } catch (const std::exception& failure) {
      text = failure.what();
    }
    EXPECT_EQ(text.substr(0, std::string(c.text).size()), c.text);
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

TEST(TranslateEventBlock, KeepsTheLastUsage) {
  TurnStream stream = newStream();
  translateEventBlock(stream, R"(data: {"choices":[{}],"usage":{"total_tokens":1}})");
  translateEventBlock(stream, R"(data: {"choices":[{}],"usage":{"total_tokens":2}})");
  translateEventBlock(stream, R"(data: {"choices":[{}],"usage":{}})");
  EXPECT_EQ(stream.usage.dump(), R"({"total_tokens":2})");
}

const std::string wholeStream =
    ": hello\n\n"
    "data: {\"choices\":[{\"delta\":{\"role\":\"assistant\",\"content\":null}}]}\n\n"
    "event: delta\ndata: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n\n"
    "data: {\"choices\":[{\"delta\":\ndata: {\"content\":\"\xE2\x82\xAC\"}}]}\n\n"
    "data: {\"choices\":[{\"finish_reason\":\"stop\"}]}\n\n"
    "data: [DONE]\n\n";
const Events wholeEvents = {delta(1, "a"), delta(2, "\xE2\x82\xAC")};

TEST(OnStreamChunk, GivesTheSameEventsForEveryCut) {
  for (std::size_t cut = 0; cut <= wholeStream.size(); ++cut) {
    TurnStream stream = newStream();
    CapturedOutput output;
    onStreamChunk(stream, wholeStream.substr(0, cut));
    onStreamChunk(stream, wholeStream.substr(cut));
    finishStream(stream);
    ASSERT_EQ(eventsIn(output.finish()), wholeEvents) << "cut at " << cut;
    ASSERT_TRUE(stream.done);
    ASSERT_EQ(stream.assistantText, "a\xE2\x82\xAC");
  }
}

TEST(OnStreamChunk, TakesSingleBytes) {
  TurnStream stream = newStream();
  CapturedOutput output;
  for (const char byte : wholeStream) onStreamChunk(stream, {&byte, 1});
  finishStream(stream);
  EXPECT_EQ(eventsIn(output.finish()), wholeEvents);
}

struct EndCase {
  const char* name;
  std::string stream;
  Events events;
  bool done;
};

const EndCase endCases[] = {
    {"a last block without its blank line",
     R"(data: {"choices":[{"delta":{"content":"a"}}]})",
     {delta(1, "a")},
     false},
    {"with one line feed",
     "data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n",
     {delta(1, "a")},
     false},
    {"what comes behind the end of the answer is left", "data: [DONE]\n\ndata: {", {}, true},
    {"an event behind the end",
     "data: [DONE]\n\ndata: {\"choices\":[{\"delta\":{\"content\":\"b\"}}]}\n\n",
     {delta(1, "b")},
     true},
    {"what comes behind a finish is left",
     "data: {\"choices\":[{\"finish_reason\":\"stop\"}]}\n\ndata: {",
     {},
     true},
    {"what comes behind an error is left",
     "data: {\"error\":5}\n\ndata: {",
     {errorLine("5")},
     true},
    {"a comment behind the end", "data: [DONE]\n\n: ping\n\n", {}, false},
    {"CR LF does not separate, so two data lines are one text",
     "data: [\r\n\r\ndata: ]\r\n\r\n",
     {},
     false},
    {"nothing", "", {}, false},
};

TEST(FinishStream, TranslatesWhatIsLeftUnlessDone) {
  for (const EndCase& c : endCases) {
    SCOPED_TRACE(c.name);
    TurnStream stream = newStream();
    CapturedOutput output;
    onStreamChunk(stream, c.stream);
    finishStream(stream);
    EXPECT_EQ(eventsIn(output.finish()), c.events);
    EXPECT_EQ(stream.done, c.done);
  }
}

TEST(OnStreamChunk, CountsOnAcrossBlocks) {
  TurnStream stream = newStream();
  CapturedOutput output;
  Events wanted;
  for (int i = 1; i <= 300; ++i) {
    onStreamChunk(stream, "data: {\"choices\":[{\"delta\":{\"content\":\"x\"}}]}\n\n");
    wanted.push_back(delta(i, "x"));
  }
  EXPECT_EQ(eventsIn(output.finish()), wanted);
}

TEST(TranslateEventBlock, EndsAnAnswerWithoutEnd) {
  TurnStream stream = newStream();
  stream.assistantText.assign(maxAssistantText - 1, 'x');
  translateEventBlock(stream, R"(data: {"choices":[{"delta":{"content":"y"}}]})");
  EXPECT_EQ(stream.assistantText.size(), 64U * 1024 * 1024);
  try {
    translateEventBlock(stream, R"(data: {"choices":[{"delta":{"content":"z"}}]})");
    ADD_FAILURE() << "one byte more was taken";
  } catch (const std::length_error& error) {
    EXPECT_STREQ(error.what(), "agent answer too large");
  }
}

TEST(TranslateEventBlock, SplitsALongDeltaForTheBrowser) {
  limitFramesForBrowser();
  std::string content;
  while (content.size() < 2'000'000) content += "\x01\xE2\x82\xAC";  // escaped, six times as long
  TurnStream stream = newStream();
  CapturedOutput output;
  translateEventBlock(stream,
                      "data: " + json{{"choices", {{{"delta", {{"content", content}}}}}}}.dump());
  const std::vector<std::string> frames = output.finish();
  std::string joined;
  unsigned seq = 0;
  for (const std::string& frame : frames) EXPECT_LE(frame.size(), maxBrowserBody);
  for (const std::string& event : eventsIn(frames)) {
    const json argument = json::parse(event).at("args").at(0);
    EXPECT_EQ(argument.at("seq"), ++seq);
    joined += argument.at("delta").get<std::string>();
  }
  EXPECT_EQ(seq, stream.seq);
  EXPECT_TRUE(joined == content);
  EXPECT_TRUE(stream.assistantText == content);
}

}  // namespace
}  // namespace media::win::chrome_inspect
