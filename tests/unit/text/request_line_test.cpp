#include "text/request_line.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

using namespace std::string_view_literals;

TEST(FitsRequestLine, RefusesWhatWouldBeginSomethingElse) {
  for (const wchar_t* const part : {L"POST", L"/v1/models?x=1&y=%20#~", L"/caf\u00e9", L"!~"}) {
    EXPECT_TRUE(fitsRequestLine(part)) << testing::PrintToString(part);
  }
  for (const std::wstring_view part :
       {L""sv, L"/a b"sv, L"/a\tb"sv, L"/a\r\nHost: elsewhere"sv, L"/a\x7f"sv, L"/a\0b"sv}) {
    EXPECT_FALSE(fitsRequestLine(part)) << testing::PrintToString(std::wstring(part));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
