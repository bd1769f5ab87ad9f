#include "text/json_view.h"

#include "support/testing.h"
#include "text/json_limits.h"

namespace media::win::chrome_inspect {
namespace {

JsonDocument documentOf(std::string_view text) {
  JsonDocument document;
  std::string error;
  EXPECT_EQ(readJson(text, document, error), ParseOutcome::ok) << error;
  return document;
}

JsonBuffer bufferOf(std::string_view text) {
  JsonBuffer buffer(text.size());
  text.copy(buffer.data(), text.size());
  return buffer;
}

std::string textOf(JsonView view) {
  std::string text;
  view.appendTo(text);
  return text;
}

const std::string texts[] = {
    R"({"a":1,"b":[true,false,null,"x"],"c":{"d":{}},"e":[]})",
    " 5 ",
    "\"\xC3\xA9\\n\\u0000\\u001f\\/\"",
    R"({"a":1,"b":2,"a":{"last":"counts"}})",
    "[0,-0,-1,1.5,-2.5e-3,1e5,0.1,123456789012345678]",
    "[9223372036854775807,-9223372036854775808,9223372036854775808,18446744073709551615]",
    "[18446744073709551616,-9223372036854775809,1e308,5e-324,1e-400]",
    R"(["\ud83d\ude00","x\ud83d","\ude00y",{"\ud83d":"\\ud83d"}])",
    "{}\0rubbish"s,
    "\xEF\xBB\xBF{}",
    "",
    "abcd",
    "[1,]",
    "{\"a\":1",
    "[1e999]",
    "[NaN]",
    "\"\xFF\"",
    "\"\xED\xA0\x80\"",
    R"(["\ud83d","\x"])",
    "\"a\nb\"",
    "01",
    std::string(63, '['),  // takes more room than a whole text of its size
    std::string(maxJsonDepth + 1, '['),
    std::string(maxJsonDepth, '[') + std::string(maxJsonDepth, ']'),
    "[" + std::string(2000, ' ') + R"("\ud83d"])",
    "[" + std::string(2000, ' ') + R"(1.25,"\u0041\\u\\","",-1e-7])",
};

TEST(JsonView, TakesWhatTheTreeTakesWithEqualValues) {
  for (const std::string& text : texts) {
    SCOPED_TRACE(testing::PrintToString(text.substr(0, 80)));
    json tree;
    std::string wantedError;
    const ParseOutcome wanted = parseJson(text, tree, wantedError);
    JsonDocument document;
    std::string error;
    EXPECT_EQ(readJson(text, document, error), wanted);
    EXPECT_EQ(error, wantedError);
    JsonDocument inPlace;
    EXPECT_EQ(readJson(bufferOf(text), inPlace, error), wanted);
    EXPECT_TRUE(error.empty() || error == wantedError);
    if (wanted != ParseOutcome::ok) continue;
    for (const JsonView root : {document.root(), inPlace.root()}) {
      EXPECT_EQ(root.toValue(), tree);
      EXPECT_EQ(json::parse(textOf(root)), tree);
    }
  }
}

// Brackets count wherever they lie, but in strings.
TEST(JsonView, RefusesOneLevelTooManyWhereverItIs) {
  const std::string closed = R"("\\",)";
  const std::string brackets = R"("\"[[{\\","\\\"]}",)";
  for (std::size_t shift = 0; shift < 130; ++shift) {
    for (const std::size_t depth : {maxJsonDepth - 100, maxJsonDepth, maxJsonDepth + 1}) {
      std::string plain = "[" + std::string(shift, ' ') + closed;
      std::string mixed = "[" + std::string(shift, ' ');
      for (int i = 0; i < 200; ++i) mixed += brackets + "{},";
      for (std::size_t i = 1; i < depth; ++i) mixed += i % 3 == 0 ? brackets + "[" : "[";
      plain += std::string(depth - 1, '[');
      for (std::string& text : {std::ref(plain), std::ref(mixed)}) {
        text += std::string(depth, ']');
        std::string error;
        JsonDocument document;
        EXPECT_EQ(readJson(text, document, error) == ParseOutcome::ok, depth <= maxJsonDepth);
      }
    }
  }
}

TEST(JsonView, AnswersForWhatAValueIsNot) {
  const JsonDocument document = documentOf(R"({"s":"text","l":[1,"2"],"o":{"k":null},"b":true})");
  const JsonView root = document.root();
  EXPECT_EQ(root.size(), 4U);
  EXPECT_EQ(root["s"].text(), "text");
  EXPECT_TRUE(root["b"].isTrue());
  EXPECT_TRUE(root["o"]["k"].isNull());
  for (const JsonView none : {root["no"], root["s"]["s"], root["l"]["1"], JsonView()}) {
    EXPECT_FALSE(none);
    EXPECT_EQ(none.size(), 0U);
    EXPECT_EQ(none.text(), "");
    EXPECT_FALSE(none.isNull() || none.isObject() || none.isArray() || none.isString());
    EXPECT_EQ(none.elements().begin(), none.elements().end());
    EXPECT_EQ(none.members().begin(), none.members().end());
    EXPECT_EQ(textOf(none), "null");
    EXPECT_TRUE(none.toValue().is_null());
  }
  EXPECT_EQ(root["s"].size(), 0U);
  EXPECT_EQ(root["s"].elements().begin(), root["s"].elements().end());
  EXPECT_EQ(root["l"].members().begin(), root["l"].members().end());
}

TEST(JsonView, WalksInOrder) {
  const JsonDocument document = documentOf(R"({"b":[1,[2,3],{"x":4},"5"],"a":{"n":1,"m":[2]}})");
  std::vector<std::string> seen;
  for (const JsonMember member : document.root().members()) {
    for (const JsonView element : member.value.elements()) seen.push_back(textOf(element));
    for (const JsonMember inner : member.value.members()) {
      seen.push_back(std::string(inner.key) + "=" + textOf(inner.value));
    }
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"1", "[2,3]", R"({"x":4})", R"("5")", "n=1", "m=[2]"}));
}

TEST(JsonView, PassesTextOnCompactAndValid) {
  EXPECT_EQ(textOf(documentOf("{ \"k\" : [ 1 , \"\\u00e9\\ud83d\\/\" ] }").root()),
            "{\"k\":[1,\"\xC3\xA9\xEF\xBF\xBD/\"]}");
}

TEST(JsonView, KeepsItsDocumentWhenAnotherTextIsRefused) {
  JsonDocument document = documentOf("[1]");
  std::string error;
  EXPECT_EQ(readJson("[", document, error), ParseOutcome::invalid);
  EXPECT_EQ(readJson(bufferOf("[2"), document, error), ParseOutcome::invalid);
  EXPECT_EQ(textOf(document.root()), "[1]");
  for (const std::string& text : {"[\"2\"]"s, "[\"" + std::string(2000, '3') + "\"]", "[4]"s}) {
    EXPECT_EQ(readJson(bufferOf(text), document, error), ParseOutcome::ok);
    EXPECT_EQ(textOf(document.root()), text);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
