#include "toolserver/url_query.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(QueryParam, ReturnsTheFirstOfThatName) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"x=1&name=a&name=b", "a"},
      {"name=&name=b", ""},
      {"name", ""},
      {"Name=a", ""},
      {"names=a&xname=b", ""},
      {"name=a=b", "a=b"},
      {"&&name=a&", "a"},
      {"name&name=b", "b"},
      {"name=%26&b", "%26"},
      {"a=name=b", ""},
      {"name==", "="},
  };
  for (const auto& [query, value] : cases) EXPECT_EQ(queryParam(query, "name"), value) << query;
}

TEST(UrlDecode, DecodesEscapesAndKeepsTheRest) {
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},           {"a+b", "a b"},       {"%41%62", "Ab"},     {"%c3%A9", "\xC3\xA9"},
      {"%4", "%4"},       {"a%", "a%"},         {"%4z", "%4z"},       {"%z4", "%z4"},
      {"%%41", "%A"},     {"%2541", "%41"},     {"%00", "\0"s},       {"%2B+", "+ "},
      {"\xFF%", "\xFF%"}, {"%0/%0:", "%0/%0:"}, {"%0@%0G", "%0@%0G"}, {"%0`%0g", "%0`%0g"},
  };
  for (const auto& [text, decoded] : cases) EXPECT_EQ(urlDecode(text), decoded) << text;
}

}  // namespace
}  // namespace media::win::chrome_inspect
