#include "text/request_line.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

struct PartCase {
  const char* name;
  std::wstring_view part;
  bool fits;
};

const PartCase partCases[] = {
    {"verb", L"POST", true},
    {"path with query", L"/v1/models?x=1&y=%20#~", true},
    {"past ASCII", L"/caf\u00e9", true},
    {"lowest and highest that fit", L"!~", true},
    {"empty", L"", false},
    {"blank", L"/a b", false},
    {"tab", L"/a\tb", false},
    {"line end", L"/a\r\nHost: elsewhere", false},
    {"delete", L"/a\x7f", false},
    {"NUL", std::wstring_view(L"/a\0b", 4), false},
};

TEST(FitsRequestLine, RefusesWhatWouldBeginSomethingElse) {
  for (const PartCase& c : partCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(fitsRequestLine(c.part), c.fits);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
