#include "chat/agent_event.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "channel/framing.h"
#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using Events = std::vector<std::string>;

std::string toolLine(const std::string& members) {
  return R"({"args":[{"role":"tool",)" + members + R"(}],"method":"appendText"})";
}

std::string attachment(const std::string& role, const std::string& path) {
  return R"({"args":[{"role":")" + role + R"(","text":")" + path + R"("}],"method":"appendText"})";
}

struct EventCase {
  const char* name;
  std::string event;
  Events events;
};

const EventCase eventCases[] = {
    {"thinking",
     R"({"type":"thinking","text":"hm"})",
     {R"({"args":[{"chatSessionId":"c","runId":"r","text":"hm"}],"method":"appendThinking"})"}},
    {"thinking without text",
     R"({"type":"thinking"})",
     {R"({"args":[{"chatSessionId":"c","runId":"r","text":""}],"method":"appendThinking"})"}},
    {"thinking with a null text",
     R"({"type":"thinking","text":null})",
     {R"({"args":[{"chatSessionId":"c","runId":"r","text":""}],"method":"appendThinking"})"}},

    {"a tool call",
     R"({"type":"tool_call","name":"read","text":"reads a.txt","id":"7"})",
     {toolLine(R"("text":"reads a.txt","toolCallId":"7","toolRunning":true)")}},
    {"a tool call by its name",
     R"({"type":"tool_call","name":"read","text":""})",
     {toolLine(R"("text":"read","toolRunning":true)")}},
    {"a tool call without either",
     R"({"type":"tool_call"})",
     {toolLine(R"("text":"tool","toolRunning":true)")}},
    {"a tool call with nulls",
     R"({"type":"tool_call","name":null,"text":null,"id":null})",
     {toolLine(R"("text":"tool","toolRunning":true)")}},
    {"a tool call with an empty name",
     R"({"type":"tool_call","name":""})",
     {toolLine(R"("text":"","toolRunning":true)")}},
    {"an id that is no string",
     R"({"type":"tool_call","id":7})",
     {toolLine(R"("text":"tool","toolRunning":true)")}},
    {"a tool call has no attachment",
     R"({"type":"tool_call","path":"a.png"})",
     {toolLine(R"("text":"tool","toolRunning":true)")}},
    {"a tool result",
     R"({"type":"tool_result","text":"done","id":"7","duration_ms":12})",
     {R"({"args":[{"durationMs":12,"role":"tool","text":"done","toolCallId":"7"}],"method":"appendText"})"}},
    {"a fractional duration",
     R"({"type":"tool_result","duration_ms":1.5})",
     {R"({"args":[{"durationMs":1.5,"role":"tool","text":"tool"}],"method":"appendText"})"}},
    {"a negative duration",
     R"({"type":"tool_call","duration_ms":-1})",
     {R"({"args":[{"durationMs":-1,"role":"tool","text":"tool","toolRunning":true}],"method":"appendText"})"}},
    {"a duration that is no number",
     R"({"type":"tool_result","duration_ms":"12"})",
     {toolLine(R"("text":"tool")")}},
    {"a picture",
     R"({"type":"tool_result","path":"C:/a.PNG"})",
     {toolLine(R"("text":"tool")"), attachment("image", "C:/a.PNG")}},
    {"jpg",
     R"({"type":"tool_result","path":"a.jpg"})",
     {toolLine(R"("text":"tool")"), attachment("image", "a.jpg")}},
    {"jpeg",
     R"({"type":"tool_result","path":"a.jpeg"})",
     {toolLine(R"("text":"tool")"), attachment("image", "a.jpeg")}},
    {"webp",
     R"({"type":"tool_result","path":"a.WebP"})",
     {toolLine(R"("text":"tool")"), attachment("image", "a.WebP")}},
    {"gif",
     R"({"type":"tool_result","path":"a.gif"})",
     {toolLine(R"("text":"tool")"), attachment("image", "a.gif")}},
    {"avif",
     R"({"type":"tool_result","path":"a.avif"})",
     {toolLine(R"("text":"tool")"), attachment("image", "a.avif")}},
    {"a file",
     R"({"type":"tool_result","path":"a.pdf"})",
     {toolLine(R"("text":"tool")"), attachment("file", "a.pdf")}},
    {"a longer extension",
     R"({"type":"tool_result","path":"a.pngx"})",
     {toolLine(R"("text":"tool")"), attachment("file", "a.pngx")}},
    {"no dot",
     R"({"type":"tool_result","path":"png"})",
     {toolLine(R"("text":"tool")"), attachment("file", "png")}},
    {"the last dot counts",
     R"({"type":"tool_result","path":"a.png.txt"})",
     {toolLine(R"("text":"tool")"), attachment("file", "a.png.txt")}},
    {"a dot and nothing behind it",
     R"({"type":"tool_result","path":"a."})",
     {toolLine(R"("text":"tool")"), attachment("file", "a.")}},
    {"a dot in a folder",
     R"({"type":"tool_result","path":"/dir.png/a"})",
     {toolLine(R"("text":"tool")"), attachment("file", "/dir.png/a")}},
    {"only an extension",
     R"({"type":"tool_result","path":".png"})",
     {toolLine(R"("text":"tool")"), attachment("image", ".png")}},
    {"an extension past ASCII",
     R"({"type":"tool_result","path":"a.jp\u00e9"})",
     {toolLine(R"("text":"tool")"), attachment("file", "a.jp\xC3\xA9")}},
    {"an empty path", R"({"type":"tool_result","path":""})", {toolLine(R"("text":"tool")")}},

    {"a run starts",
     R"({"type":"tool_file_progress","id":"7","event":"start","command":"ls"})",
     {R"({"args":["7","ls"],"method":"startRun"})"}},
    {"a run starts without a command",
     R"({"type":"tool_file_progress","id":"7","event":"start"})",
     {R"({"args":["7",""],"method":"startRun"})"}},
    {"a run ends",
     R"({"type":"tool_file_progress","id":"7","event":"done","exit_code":3,"duration_ms":5000000000})",
     {R"({"args":["7",3,5000000000],"method":"finishRun"})"}},
    {"a run ends without numbers",
     R"({"type":"tool_file_progress","id":"7","event":"done"})",
     {R"({"args":["7",-1,0],"method":"finishRun"})"}},
    {"numbers that do not fit",
     R"({"type":"tool_file_progress","id":"7","event":"done","exit_code":4294967297,"duration_ms":1e300})",
     {R"({"args":["7",-1,0],"method":"finishRun"})"}},
    {"output",
     R"({"type":"tool_file_progress","id":"7","event":"output","chunk":"a\n","stream":"stderr"})",
     {R"({"args":["7","a\n","stderr"],"method":"appendRunChunk"})"}},
    {"output without a name",
     R"({"type":"tool_file_progress","id":"7","chunk":"a"})",
     {R"({"args":["7","a","stdout"],"method":"appendRunChunk"})"}},
    {"empty output", R"({"type":"tool_file_progress","id":"7","chunk":""})", {}},
    {"a run without id", R"({"type":"tool_file_progress","event":"start"})", {}},
    {"a run with an empty id", R"({"type":"tool_file_progress","id":"","event":"done"})", {}},

    {"a consent question",
     R"({"object":"morva.event","type":"consent","model":"m","id":5,"z":{"type":"kept"}})",
     {R"({"args":[{"id":5,"z":{"type":"kept"}}],"method":"consentRequest"})"}},
    {"an empty consent question",
     R"({"object":"morva.event","type":"consent"})",
     {R"({"args":[{}],"method":"consentRequest"})"}},
    {"the question is withdrawn",
     R"({"object":"morva.event","type":"consent.dismiss","id":5})",
     {R"({"args":[{"id":5}],"method":"dismissConsent"})"}},

    {"an unknown type", R"({"type":"thinking2","text":"x"})", {}},
    {"no type", R"({"text":"x"})", {}},
    {"a null type", R"({"type":null})", {}},
};

TEST(TranslateAgentEvent, TranslatesEachRow) {
  for (const EventCase& c : eventCases) {
    SCOPED_TRACE(c.name);
    CapturedOutput output;
    translateAgentEvent("r", "c", json::parse(c.event));
    EXPECT_EQ(eventsIn(output.finish()), c.events);
  }
}

TEST(TranslateAgentEvent, ThrowsForAWrongTypeAndSendsNothing) {
  for (const char* const text : {
           R"({"type":5})",
           R"({"type":"thinking","text":5})",
           R"({"type":"tool_call","name":[]})",
           R"({"type":"tool_result","text":{}})",
           R"({"type":"tool_result","path":5})",
           R"({"type":"tool_file_progress","id":7})",
           R"({"type":"tool_file_progress","id":"7","event":7})",
           R"({"type":"tool_file_progress","id":"7","event":"start","command":7})",
           R"({"type":"tool_file_progress","id":"7","event":"done","exit_code":"1"})",
           R"({"type":"tool_file_progress","id":"7","chunk":7})",
           R"({"type":"tool_file_progress","id":"7","chunk":"a","stream":7})",
       }) {
    SCOPED_TRACE(text);
    CapturedOutput output;
    EXPECT_THROW(translateAgentEvent("r", "c", json::parse(text)), json::type_error);
    EXPECT_TRUE(output.finish().empty());
  }
}

TEST(TranslateAgentEvent, SplitsLongTextsForTheBrowser) {
  limitFramesForBrowser();
  const std::string text(2 * maxBrowserBody, 'x');
  CapturedOutput output;
  translateAgentEvent("r", "c", {{"type", "thinking"}, {"text", text}});
  translateAgentEvent("r", "c", {{"type", "tool_file_progress"}, {"id", "7"}, {"chunk", text}});
  translateAgentEvent("r", "c", {{"type", "tool_call"}, {"text", text}});
  const std::vector<std::string> frames = output.finish();
  std::string thinking;
  std::string chunks;
  std::string lines;
  for (const std::string& frame : frames) EXPECT_LE(frame.size(), maxBrowserBody);
  for (const std::string& event : eventsIn(frames)) {
    const json args = json::parse(event).at("args");
    if (args.size() == 3) {
      chunks += args.at(1).get<std::string>();
    } else if (args.at(0).contains("role")) {
      lines += args.at(0).at("text").get<std::string>();
    } else {
      thinking += args.at(0).at("text").get<std::string>();
    }
  }
  EXPECT_TRUE(thinking == text);
  EXPECT_TRUE(chunks == text);
  EXPECT_TRUE(lines.starts_with("event appendText left out: too large for the browser ("))
      << lines.size();
}

}  // namespace
}  // namespace media::win::chrome_inspect
