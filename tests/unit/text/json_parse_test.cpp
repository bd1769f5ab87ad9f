#include "text/json_parse.h"

#include "support/testing.h"
#include "text/json_limits.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

std::string nestedArrays(std::size_t depth) { return repeat(depth, "[") + repeat(depth, "]"); }
std::string nestedObjects(std::size_t depth) {
  return repeat(depth, "{\"a\":") + "1" + repeat(depth, "}");
}

const std::string bad = "\xEF\xBF\xBD";  // U+FFFD
const std::string smile = "\xF0\x9F\x98\x80";
const std::string manyBrackets = repeat(5000, "[{");

// What a text becomes when it is read and written again.
const std::pair<std::string, std::string> goodCases[] = {
    {R"({"a":1})", R"({"a":1})"},
    {" 5 ", "5"},
    {"{}\0rubbish"s, "{}"},
    {"\"\xC3\xA9\"", "\"\xC3\xA9\""},
    // Halves of a surrogate pair.
    {R"("\ud83d\ude00")", "\"" + smile + "\""},
    {R"({"a":"x\ud83d"})", R"({"a":"x)" + bad + "\"}"},
    {R"("\uD83Dx\ude00x")", "\"" + bad + "x" + bad + "x\""},
    {R"("\ud800 \udbff ")", "\"" + bad + " " + bad + " \""},
    {R"("\udc00 \udfff")", "\"" + bad + " " + bad + "\""},
    {R"("\ud7ff\ue000\ud83d")", "\"\xED\x9F\xBF\xEE\x80\x80" + bad + "\""},
    {R"("\ude00\ud83d")", "\"" + bad + bad + "\""},
    {R"("\ud83d\ud83d\ude00\ude00")", "\"" + bad + smile + bad + "\""},
    {R"("\ud83d\n")", "\"" + bad + "\\n\""},
    {R"(["\ud83d\"",1])", "[\"" + bad + "\\\"\",1]"},
    {R"(["\ude00","\\ud83d"])", "[\"" + bad + R"(","\\ud83d"])"},
    {R"("\\\ud83d")", R"("\\)" + bad + "\""},
    {R"({"\ud83d":1})", "{\"" + bad + "\":1}"},
    // Many brackets that are not deep.
    {"[\"" + manyBrackets + "\"]", "[\"" + manyBrackets + "\"]"},
    {"[\"\\\"" + manyBrackets + "\"]", "[\"\\\"" + manyBrackets + "\"]"},
    {R"(["\\",[])" + repeat(1500, ",[]") + "]", R"(["\\",[])" + repeat(1500, ",[]") + "]"},
};

TEST(ParseJson, TakesWhatIsJson) {
  for (const auto& [text, wanted] : goodCases) {
    SCOPED_TRACE(text.substr(0, 99));
    json value = "before";
    std::string error = "no error";
    EXPECT_EQ(parseJson(text, value, error), ParseOutcome::ok) << error;
    EXPECT_EQ(value.dump(), wanted);
    EXPECT_EQ(error, "no error");
  }
  EXPECT_EQ(maxJsonDepth, 1000U);
  for (const std::string& text : {nestedArrays(1000), nestedObjects(1000)}) {
    json value;
    std::string error;
    EXPECT_EQ(parseJson(text, value, error), ParseOutcome::ok) << error;
    EXPECT_TRUE(value.is_structured());  // serialising it takes more stack than there may be
  }
}

// A text, and a part of the error text.
const std::pair<std::string, const char*> invalidCases[] = {
    {"", "parse error at line 1, column 1"},
    {R"({"a":1)", "unexpected end of input"},
    {"{} {}", "expected end of input"},
    {"/*c*/ {}", "syntax error"},
    {"[1,]", "syntax error"},
    {"1e999", "number overflow"},
    {"{\"a\":\"\xFF\"}", "invalid string: ill-formed UTF-8 byte"},
    {"\xFF", "invalid literal"},
    {R"("\ud83")", "must be followed by 4 hex digits"},
    {R"(["\ud83d","\x"])", "surrogate"},
    {R"(\ud83d)", "invalid literal"},
    {R"("\ud83d)", "surrogate"},
    {"\"\\", "invalid string"},
};

TEST(ParseJson, RefusesWhatIsNotAndSaysWhy) {
  for (const auto& [text, wanted] : invalidCases) {
    SCOPED_TRACE(text);
    json value = "before";
    std::string error;
    EXPECT_EQ(parseJson(text, value, error), ParseOutcome::invalid);
    EXPECT_EQ(value, "before");
    EXPECT_NE(error.find(wanted), std::string::npos) << error;
    EXPECT_TRUE(isValidUtf8(error)) << testing::PrintToString(error);
  }
}

TEST(ParseJson, RefusesWhatIsNestedTooDeeply) {
  const std::string cases[] = {
      nestedArrays(1001),
      nestedObjects(1001),
      repeat(2'000'000, "["),
      // Behind strings that end in a quote or a backslash, too many ends, and much that is flat.
      R"(["\"",)" + nestedArrays(1000) + "]",
      R"(["\\",)" + nestedArrays(1000) + "]",
      "]]]]]" + repeat(1001, "["),
      "[" + repeat(3000, "[],") + nestedArrays(1000) + "]",
  };
  for (const std::string& text : cases) {
    SCOPED_TRACE(text.substr(0, 20));
    json value = "before";
    std::string error;
    EXPECT_EQ(parseJson(text, value, error), ParseOutcome::overLimit);
    EXPECT_EQ(value, "before");
    EXPECT_EQ(error, "json nested too deeply");
  }
}

TEST(DumpJson, IsCompactAndReplacesWhatIsNotUtf8) {
  EXPECT_EQ(dumpJson(json{{"b", {1, 2.5, nullptr}}, {"a", "\xC3\xA9\n\xFF\xC3"}}),
            "{\"a\":\"\xC3\xA9\\n" + bad + bad + "\",\"b\":[1,2.5,null]}");
}

// An array of `count` elements.
std::string listOf(std::size_t count, const std::string& element) {
  return "[" + repeat(count - 1, element + ",") + element + "]";
}

// `count` chains of 999 objects, each the only member of the one before.
std::string chains(std::size_t count) {
  return listOf(count, repeat(999, R"({"a":)") + "1" + std::string(999, '}'));
}

struct LimitCase {
  const char* name;
  std::string text;
  std::string_view exceeded;
};

constexpr std::string_view tooMany = "json has too many values";
constexpr std::string_view tooLarge = "json takes too much memory";

// The texts are made by the test: every other test of the program starts without them.
TEST(JsonLimits, CountValuesAndMemory) {
  const LimitCase cases[] = {
      {"as many values as may be", listOf(maxJsonValues - 1, "1"), ""},
      {"one more", listOf(maxJsonValues, "1"), tooMany},
      {"one more, with blanks", listOf(maxJsonValues, " 1\n"), tooMany},
      {"one more of every kind", listOf(maxJsonValues / 4, R"([],"",null)") + " ", ""},
      {"members",
       "{" + repeat(maxJsonValues / 2, R"("k":0,)") + R"("k":[)" + repeat(maxJsonValues / 2, "0,") +
           "0]}",
       tooMany},
      {"keys are no values", "{" + repeat(maxJsonValues - 2, R"("k" :0,)") + R"("k":0})", ""},
      {"values inside strings", "[\"" + repeat(maxJsonValues, "1,\\\"2,") + "\"]", ""},
      {"empty objects in a list", listOf(maxJsonValues - 1, "{}"), ""},
      {"chains within the memory", chains(1600), ""},
      {"chains past it", chains(1700), tooLarge},
      {"long texts past it", listOf(1'900'000, "\"" + std::string(64, 'x') + "\""), tooLarge},
      {"long keys past it",
       "{" + repeat(1'900'000, "\"" + std::string(32, 'x') + "\":0,") + R"("k":0})", tooLarge},
  };
  for (const LimitCase& c : cases) EXPECT_EQ(jsonLimitExceeded(c.text), c.exceeded) << c.name;
  const std::string members = "{" + repeat(maxJsonValues * 6 / 10, R"("k":0,)");
  for (const char* end : {"\"k", "\"k\"", "\"k\" \t\r\n", "\"k\":1", "\"k\":1\"", "\"k\":\t1\r"}) {
    EXPECT_EQ(jsonLimitExceeded(members + end), "") << end;  // cut off, or no JSON
  }
}

// To the byte: a list, in it objects with a key and a list with a text, and one long text.
TEST(JsonLimits, CountWhatEachKindTakes) {
  constexpr std::size_t count = 660'000;
  constexpr std::size_t each = (64 + 32) + 96 + 32 + (48 + 32);
  constexpr std::size_t around = (32 + 32) + (48 + 32) + 17 + 1;
  std::string text = "[" + repeat(count, R"({"":[""]},)") + "\"" +
                     std::string(256 * 1024 * 1024 - count * each - around, 'x') + "\"]";
  EXPECT_EQ(jsonLimitExceeded(text), "");
  text.insert(text.size() - 2, "x");
  EXPECT_EQ(jsonLimitExceeded(text), tooLarge);
}

}  // namespace
}  // namespace media::win::chrome_inspect
