#include "text/url_escape.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

struct EscapeCase {
  std::string_view text;
  const char* encoded;  // by percentEncode
  const char* target;   // by escapeTarget
};

using namespace std::string_view_literals;

const EscapeCase escapeCases[] = {
    {"", "", ""},
    {"azAZ09-._~", "azAZ09-._~", "azAZ09-._~"},
    {"C:\\Work Dir", "C%3A%5CWork%20Dir", "C:\\Work%20Dir"},
    {"/v1/a?b=c&d=%0d", "%2Fv1%2Fa%3Fb%3Dc%26d%3D%250d", "/v1/a?b=c&d=%0d"},
    {"a\r\nX: 1", "a%0D%0AX%3A%201", "a%0D%0AX:%201"},
    {"\0\x01\t\x1f\x7f"sv, "%00%01%09%1F%7F", "%00%01%09%1F%7F"},
    {"\"'<>", "%22%27%3C%3E", "%22'<>"},
    {"\xC3\xBC\xF0\x9F\x98\x80", "%C3%BC%F0%9F%98%80", "%C3%BC%F0%9F%98%80"},
    {"\x80\xFF", "%80%FF", "%80%FF"},
    {"#{}|^`[]+!", "%23%7B%7D%7C%5E%60%5B%5D%2B%21", "%23{}|^`[]+!"},
};

TEST(UrlEscape, LeavesWhatMayStandThere) {
  for (const EscapeCase& c : escapeCases) {
    EXPECT_EQ(percentEncode(c.text), c.encoded) << c.text;
    EXPECT_EQ(escapeTarget(c.text), c.target) << c.text;
  }
}

TEST(PercentEncode, TakesEveryByte) {
  for (int value = 0; value < 256; ++value) {
    const char byte = static_cast<char>(value);
    const std::string encoded = percentEncode({&byte, 1});
    if (encoded.size() == 1) {
      EXPECT_EQ(encoded[0], byte);
    } else {
      ASSERT_EQ(encoded.size(), 3U);
      EXPECT_EQ(std::stoi(encoded.substr(1), nullptr, 16), value);
    }
    EXPECT_EQ(escapeTarget({&byte, 1}).find_first_of("\r\n \t\""), std::string::npos);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
