#include "platform/posix/command_line_posix.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

struct LineCase {
  const char* name;
  std::wstring line;
  std::vector<std::string> words;
};

const LineCase lineCases[] = {
    {"words", L"a --b  c\td", {"a", "--b", "c", "d"}},
    {"quoted program", L"\"/x y/cli.exe\" --port 1", {"/x y/cli.exe", "--port", "1"}},
    {"quotes inside a word", L"--name=\"a b\"c", {"--name=a bc"}},
    {"empty quotes", L"a \"\" b", {"a", "", "b"}},
    {"blanks around", L"  a  ", {"a"}},
    {"past ASCII", L"\"/caf\u00e9\"", {"/caf\xc3\xa9"}},
    {"nothing", L"", {}},
};

TEST(SplitCommandLine, TakesQuotesAwayAndSplitsAtBlanks) {
  for (const LineCase& c : lineCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(splitCommandLine(c.line), c.words);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
