#include "toolserver/url_query.h"

#include <gtest/gtest.h>

#include <string>

namespace media::win::chrome_inspect {
namespace {

using namespace std::string_literals;

TEST(QueryParam, GivesTheFirstOfThatName) {
  const struct {
    const char* query;
    const char* value;
  } cases[] = {
      {"", ""},
      {"name=a", "a"},
      {"x=1&name=a&name=b", "a"},
      {"name=", ""},
      {"name", ""},
      {"Name=a", ""},
      {"names=a", ""},
      {"xname=a", ""},
      {"name=a=b", "a=b"},
      {"&&name=a&", "a"},
      {"name&name=b", "b"},
      {"x&y", ""},
      {"name=%26&b", "%26"},
      {"a=name=b", ""},
      {"name==", "="},
  };
  for (const auto& c : cases) EXPECT_EQ(queryParam(c.query, "name"), c.value) << c.query;
}

TEST(UrlDecode, DecodesEscapesAndKeepsTheRest) {
  const struct {
    std::string text;
    std::string decoded;
  } cases[] = {
      {"", ""},
      {"a+b", "a b"},
      {"%41%62", "Ab"},
      {"%c3%A9", "\xC3\xA9"},
      {"%", "%"},
      {"%4", "%4"},
      {"a%", "a%"},
      {"%zz", "%zz"},
      {"%4z", "%4z"},
      {"%z4", "%z4"},
      {"%%41", "%A"},
      {"%2541", "%41"},
      {"%00", "\0"s},
      {"%ff", "\xFF"},
      {"%2B+", "+ "},
      {"\xFF%", "\xFF%"},
      {"C%3A%5Cx.png", "C:\\x.png"},
  };
  for (const auto& c : cases) EXPECT_EQ(urlDecode(c.text), c.decoded) << c.text;
}

TEST(UrlDecode, TakesEveryByteAsADigitOrNot) {
  for (int byte = 0; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const bool digit = std::string("0123456789abcdefABCDEF").find(c) != std::string::npos;
    const std::string kept = c == '+' ? "%0 "s : "%0"s + c;
    EXPECT_EQ(urlDecode("%0"s + c) != kept, digit) << byte;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
