#include "agent/agent_answer.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

struct AnswerCase {
  const char* name;
  AgentResponse response;
  bool ok;
  const char* error;
  GoodStatus good = GoodStatus::only200;
};

const AnswerCase answerCases[] = {
    {"ok", {200, R"({"ok":true})", ""}, true, ""},
    {"ok, with an error", {200, R"({"ok":true,"error":"x"})", ""}, true, ""},
    {"not ok", {200, R"({"ok":false,"error":"no"})", ""}, false, "no"},
    {"an empty error", {200, R"({"ok":false,"error":""})", ""}, false, ""},
    {"no error", {200, "{}", ""}, false, "fallback"},
    {"an error of another type", {200, R"({"error":5})", ""}, false, "fallback"},
    {"ok of another type", {200, R"({"ok":"true"})", ""}, false, "fallback"},
    {"no object", {200, "[true]", ""}, false, "fallback"},
    {"an empty body", {200, "", ""}, false, "fallback"},
    {"no JSON", {200, "{", ""}, false, "fallback"},
    {"nested too deeply", {200, std::string(100'000, '['), ""}, false, "fallback"},
    {"another status", {500, R"({"ok":true,"error":"x"})", ""}, false, "fallback"},
    {"no answer", {0, "", "agent request failed"}, false, "agent request failed"},
    {"a whole body, but not all of it", {200, R"({"ok":true})", "broke"}, false, "broke"},
    {"half a body", {200, R"({"ok":)", "broke"}, false, "broke"},
    {"a broken refusal", {500, R"({"error":"x"})", "broke"}, false, "broke"},
    {"another good status", {204, R"({"ok":true})", ""}, false, "fallback"},
    {"one that is asked for", {299, R"({"ok":true})", ""}, true, "", GoodStatus::any2xx},
    {"before it", {199, R"({"ok":true})", ""}, false, "fallback", GoodStatus::any2xx},
    {"past it", {300, R"({"ok":true})", ""}, false, "fallback", GoodStatus::any2xx},
};

TEST(ReadAnswer, JudgesStatusAndBody) {
  for (const AnswerCase& c : answerCases) {
    SCOPED_TRACE(c.name);
    const AgentAnswer answer = readAnswer(c.response, "fallback", c.good);
    EXPECT_EQ(answer.ok, c.ok);
    EXPECT_EQ(answer.error, c.error);
  }
}

TEST(ExplainedError, IsTheBodysWithAnyStatusOfAWholeAnswer) {
  EXPECT_EQ(explainedError(readAnswer({500, R"({"error":"x"})", ""}, "fallback")), "x");
  EXPECT_EQ(explainedError(readAnswer({500, R"({"error":5})", ""}, "fallback")), "fallback");
  EXPECT_EQ(explainedError(readAnswer({500, "<html>", ""}, "fallback")), "fallback");
  EXPECT_EQ(explainedError(readAnswer({500, R"({"error":"x"})", "broke"}, "fallback")), "broke");
}

TEST(ReadAnswer, KnowsWhatIsJson) {
  EXPECT_TRUE(readAnswer({500, "null", ""}, "").isJson);
  EXPECT_TRUE(readAnswer({200, "", ""}, "").isJson);
  EXPECT_FALSE(readAnswer({200, "{", ""}, "").isJson);
  EXPECT_FALSE(readAnswer({200, "{}", "broke"}, "").isJson);
}

TEST(ParseAnswer, TakesNoBodyForAnEmptyObject) {
  json value = 5;
  EXPECT_FALSE(parseAnswer({200, "{", ""}, value));
  EXPECT_EQ(value, 5);
  EXPECT_TRUE(parseAnswer({200, "", ""}, value));
  EXPECT_EQ(value, json::object());
  EXPECT_TRUE(parseAnswer({500, "[1]", "agent response truncated"}, value));
  EXPECT_EQ(value, json::array({1}));
}

TEST(IsWholeAnswer, NeedsStatus200AndNoError) {
  EXPECT_TRUE(isWholeAnswer({200, "", ""}));
  EXPECT_FALSE(isWholeAnswer({201, "", ""}));
  EXPECT_FALSE(isWholeAnswer({200, "{}", "agent response truncated"}));
}

TEST(TakeData, IsAnEmptyObjectWithoutData) {
  json value = {{"ok", true}, {"data", {7}}};
  EXPECT_EQ(takeData(value).dump(), "[7]");
  json null = {{"data", nullptr}};
  EXPECT_EQ(takeData(null).dump(), "null");
  json none = {{"ok", true}};
  EXPECT_EQ(takeData(none).dump(), "{}");
}

}  // namespace
}  // namespace media::win::chrome_inspect
