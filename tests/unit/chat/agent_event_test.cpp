#include "chat/agent_event.h"

#include "support/brief_events.h"
#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string translated(const std::string& event) {
  CapturedOutput output;
  TurnEvents events("r");
  translateAgentEvent(events, "c", json::parse(event));
  return briefEvents(output.finish());
}

const std::tuple<const char*, const char*> eventCases[] = {
    {R"({"type":"thinking","text":"hm"})", R"(appendThinking [{"text":"hm"}])"},
    {R"({"type":"thinking"})", R"(appendThinking [{"text":""}])"},
    {R"({"type":"thinking","text":null})", R"(appendThinking [{"text":""}])"},

    {R"({"object":"morva.event","type":"consent","model":"m","id":5,"z":{"type":"kept"}})",
     R"(consentRequest [{"id":5,"z":{"type":"kept"}}])"},
    {R"({"object":"morva.event","type":"consent"})", "consentRequest [{}]"},
    {R"({"object":"morva.event","type":"consent.dismiss","id":5})", R"(dismissConsent [{"id":5}])"},

    {R"({"type":"thinking2","text":"x"})", ""},
    {R"({"text":"x"})", ""},
    {R"({"type":null})", ""},
};

TEST(TranslateAgentEvent, TranslatesEachType) {
  for (const auto& [event, brief] : eventCases) EXPECT_EQ(translated(event), brief) << event;
}

// The members of a tool's event, and those of its line besides "role", and "toolRunning" for a
// call.
const std::tuple<const char*, const char*> toolCases[] = {
    {R"("name":"read","text":"reads a.txt","id":"7")", R"("text":"reads a.txt","toolCallId":"7")"},
    {R"("name":"read","text":"")", R"("text":"read")"},
    {R"("name":null,"text":null,"id":null)", R"("text":"tool")"},
    {R"("name":"")", R"("text":"")"},
    {R"("id":7)", R"("text":"tool")"},
    {R"("duration_ms":12)", R"("durationMs":12,"text":"tool")"},
    {R"("duration_ms":1.5)", R"("durationMs":1.5,"text":"tool")"},
    {R"("duration_ms":-1)", R"("durationMs":-1,"text":"tool")"},
    {R"("duration_ms":"12")", R"("text":"tool")"},
    {R"("path":"")", R"("text":"tool")"},
};

TEST(TranslateAgentEvent, ShowsToolCallsAndResultsAsLines) {
  for (const auto& [event, brief] : toolCases) {
    json line = json::parse(std::string("{") + brief + R"(,"role":"tool"})");
    const std::string members = std::string(",") + event + "}";
    EXPECT_EQ(translated(R"({"type":"tool_result")" + members),
              "appendText " + json::array({line}).dump());
    line["toolRunning"] = true;
    EXPECT_EQ(translated(R"({"type":"tool_call")" + members),
              "appendText " + json::array({line}).dump());
  }
  EXPECT_EQ(translated(R"({"type":"tool_call","path":"a.png"})"),
            R"(appendText [{"role":"tool","text":"tool","toolRunning":true}])");
}

TEST(TranslateAgentEvent, AttachesTheFileOfAResult) {
  const auto expectRole = [](const char* role, const std::string& path) {
    const json event = {{"type", "tool_result"}, {"path", path}};
    const json attachment = {{"role", role}, {"text", path}};
    EXPECT_EQ(translated(event.dump()),
              R"(appendText [{"role":"tool","text":"tool"}]; appendText )" +
                  json::array({attachment}).dump());
  };
  for (const char* const path :
       {"C:/a.PNG", "a.png", "a.jpg", "a.jpeg", "a.WebP", "a.gif", "a.avif", ".png"}) {
    expectRole("image", path);
  }
  for (const char* const path :
       {"a.pdf", "a.pngx", "png", "a.png.txt", "a.", "/dir.png/a", "a.jp\xC3\xA9"}) {
    expectRole("file", path);
  }
}

// The members of a run's event besides "type".
const std::tuple<const char*, const char*> runCases[] = {
    {R"("id":"7","event":"start","command":"ls")", R"(startRun ["7","ls"])"},
    {R"("id":"7","event":"start")", R"(startRun ["7",""])"},
    {R"("id":"7","event":"done","exit_code":3,"duration_ms":5000000000)",
     R"(finishRun ["7",3,5000000000])"},
    {R"("id":"7","event":"done")", R"(finishRun ["7",-1,0])"},
    {R"("id":"7","event":"done","exit_code":4294967297,"duration_ms":1e300)",
     R"(finishRun ["7",-1,0])"},
    {R"("id":"7","event":"output","chunk":"a\n","stream":"stderr")",
     R"(appendRunChunk ["7","a\n","stderr"])"},
    {R"("id":"7","chunk":"a")", R"(appendRunChunk ["7","a","stdout"])"},
    {R"("id":"7","chunk":"")", ""},
    {R"("event":"start")", ""},
    {R"("id":"","event":"done")", ""},
    {R"("event":5)", ""},
};

TEST(TranslateAgentEvent, ShowsRunsOfCommands) {
  for (const auto& [event, brief] : runCases) {
    const std::string head = R"({"type":"tool_file_progress",)";
    EXPECT_EQ(translated(head + event + "}"), brief) << event;
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
    TurnEvents events("r");
    EXPECT_THROW(translateAgentEvent(events, "c", json::parse(text)), json::type_error);
    EXPECT_TRUE(output.finish().empty());
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
