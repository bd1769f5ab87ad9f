#include "text/json_parse.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using namespace std::string_literals;

std::string repeat(std::size_t count, std::string_view text) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

std::string nestedArrays(std::size_t depth) {
  return std::string(depth, '[') + std::string(depth, ']');
}

struct ParseCase {
  const char* name;
  std::string text;
  std::string wanted;  // the value again, or a part of the error text
};

const ParseCase goodCases[] = {
    {"object", R"({"a":1})", R"({"a":1})"},
    {"scalar", " 5 ", "5"},
    {"characters stay as they are", "\"\xC3\xA9\"", "\"\xC3\xA9\""},
    {"a pair is one character", R"("\ud83d\ude00")", "\"\xF0\x9F\x98\x80\""},
    {"lone high half", R"({"a":"x\ud83d"})", "{\"a\":\"x\xEF\xBF\xBD\"}"},
    {"lone high half in capitals", R"("\uD83Dx")", "\"\xEF\xBF\xBDx\""},
    {"lone low half", R"("\ude00x")", "\"\xEF\xBF\xBDx\""},
    {"first and last high half", R"("\ud800 \udbff ")", "\"\xEF\xBF\xBD \xEF\xBF\xBD \""},
    {"first and last low half", R"("\udc00 \udfff")", "\"\xEF\xBF\xBD \xEF\xBF\xBD\""},
    {"next to the halves", R"("\ud7ff\ue000")", "\"\xED\x9F\xBF\xEE\x80\x80\""},
    {"the wrong way round", R"("\ude00\ud83d")", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
    {"two high halves", R"("\ud83d\ud83d")", "\"\xEF\xBF\xBD\xEF\xBF\xBD\""},
    {"high half before a pair", R"("\ud83d\ud83d\ude00")", "\"\xEF\xBF\xBD\xF0\x9F\x98\x80\""},
    {"pair before a low half", R"("\ud83d\ude00\ude00")", "\"\xF0\x9F\x98\x80\xEF\xBF\xBD\""},
    {"high half before another escape", R"("\ud83d\n")", "\"\xEF\xBF\xBD\\n\""},
    {"high half before an escaped quote", R"(["\ud83d\"",1])", "[\"\xEF\xBF\xBD\\\"\",1]"},
    {"an escaped backslash is no escape", R"(["\ude00","\\ud83d"])",
     "[\"\xEF\xBF\xBD\",\"\\\\ud83d\"]"},
    {"a backslash before a half", R"("\\\ud83d")", "\"\\\\\xEF\xBF\xBD\""},
    {"in a key", R"({"\ud83d":1})", "{\"\xEF\xBF\xBD\":1}"},
    {"a NUL ends the text", "{}\0rubbish"s, "{}"},
    {"brackets inside strings", "[\"" + std::string(5000, '[') + "\"]",
     "[\"" + std::string(5000, '[') + "\"]"},
    {"brackets behind an escaped quote", "[\"\\\"" + std::string(5000, '{') + "\"]",
     "[\"\\\"" + std::string(5000, '{') + "\"]"},
    {"brackets behind an escaped backslash", "[\"\\\\\",[]" + repeat(1500, ",[]") + "]",
     "[\"\\\\\",[]" + repeat(1500, ",[]") + "]"},
    {"many levels one after the other", "[" + repeat(2000, "[],") + "[]]",
     "[" + repeat(2000, "[],") + "[]]"},
};

TEST(ParseJson, TakesWhatIsJson) {
  for (const ParseCase& c : goodCases) {
    SCOPED_TRACE(c.name);
    json value = "before";
    std::string error = "no error";
    EXPECT_EQ(parseJson(c.text, value, error), ParseOutcome::ok) << error;
    EXPECT_EQ(value.dump(), c.wanted);
    EXPECT_EQ(error, "no error");
  }
}

TEST(ParseJson, TakesWhatIsNestedUpToItsLimit) {
  for (const std::string& text :
       {nestedArrays(maxJsonDepth),
        repeat(maxJsonDepth, "{\"a\":") + "1" + std::string(maxJsonDepth, '}')}) {
    json value;
    std::string error;
    EXPECT_EQ(parseJson(text, value, error), ParseOutcome::ok) << error;
    EXPECT_TRUE(value.is_structured());  // serialising it takes more stack than there may be
  }
}

const ParseCase invalidCases[] = {
    {"empty", "", "parse error at line 1, column 1"},
    {"no JSON", "abcd", "parse error at line 1, column 1"},
    {"not closed", R"({"a":1)", "unexpected end of input"},
    {"two values", "{} {}", "expected end of input"},
    {"a comment", "/*c*/ {}", "syntax error"},
    {"a trailing comma", "[1,]", "syntax error"},
    {"too large a number", "1e999", "number overflow"},
    {"a byte that is not UTF-8", "{\"a\":\"\xFF\"}", "invalid string: ill-formed UTF-8 byte"},
    {"only that byte", "\xFF", "invalid literal"},
    {"a broken escape", R"("\ud83")", "must be followed by 4 hex digits"},
    {"a half and a broken escape", R"(["\ud83d","\x"])", "surrogate"},
    {"a half outside a string", R"(\ud83d)", "invalid literal"},
    {"a half at the very end", R"("\ud83d)", "surrogate"},
    {"a backslash at the very end", "\"\\", "invalid string"},
};

TEST(ParseJson, RefusesWhatIsNotAndSaysWhy) {
  for (const ParseCase& c : invalidCases) {
    SCOPED_TRACE(c.name);
    json value = "before";
    std::string error;
    EXPECT_EQ(parseJson(c.text, value, error), ParseOutcome::invalid);
    EXPECT_EQ(value, "before");
    EXPECT_NE(error.find(c.wanted), std::string::npos) << error;
    EXPECT_TRUE(isValidUtf8(error)) << testing::PrintToString(error);
  }
}

TEST(ParseJson, SaysWhyInUtf8WhateverTheByte) {
  for (int byte = 0; byte <= 0xFF; ++byte) {
    for (const std::string& around : {"@"s, "\"@\""s, "[1@2]"s, "{\"a\":tru@}"s, "\"\\u12@4\""s}) {
      std::string text = around;
      text[text.find('@')] = static_cast<char>(byte);
      json value;
      std::string error;
      (void)parseJson(text, value, error);
      EXPECT_TRUE(isValidUtf8(error)) << testing::PrintToString(text);
    }
  }
}

const ParseCase deepCases[] = {
    {"arrays", nestedArrays(maxJsonDepth + 1), ""},
    {"objects", repeat(maxJsonDepth + 1, "{\"a\":") + "1" + std::string(maxJsonDepth + 1, '}'), ""},
    {"never closed", std::string(2'000'000, '['), ""},
    {"deep after a string with a quote", "[\"\\\"\"," + nestedArrays(maxJsonDepth) + "]", ""},
    {"deep after a string that ends in a backslash",
     "[\"\\\\\"," + nestedArrays(maxJsonDepth) + "]", ""},
    {"deep after too many ends", std::string(5, ']') + std::string(maxJsonDepth + 1, '['), ""},
    {"deep late", "[" + repeat(3000, "[],") + nestedArrays(maxJsonDepth) + "]", ""},
};

TEST(ParseJson, RefusesWhatIsNestedTooDeeply) {
  EXPECT_EQ(maxJsonDepth, 1000U);
  for (const ParseCase& c : deepCases) {
    SCOPED_TRACE(c.name);
    json value = "before";
    std::string error;
    EXPECT_EQ(parseJson(c.text, value, error), ParseOutcome::tooDeep);
    EXPECT_EQ(value, "before");
    EXPECT_EQ(error, "json nested too deeply");
  }
}

TEST(DumpJson, IsCompactAndReplacesWhatIsNotUtf8) {
  EXPECT_EQ(dumpJson(json{{"b", {1, 2.5, nullptr}}, {"a", "\xC3\xA9\n\xFF\xC3"}}),
            "{\"a\":\"\xC3\xA9\\n\xEF\xBF\xBD\xEF\xBF\xBD\",\"b\":[1,2.5,null]}");
}

}  // namespace
}  // namespace media::win::chrome_inspect
