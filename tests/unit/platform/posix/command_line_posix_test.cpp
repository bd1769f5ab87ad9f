#include "platform/posix/command_line_posix.h"

#include "platform/posix/path_text_posix.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(SplitCommandLine, TakesQuotesAwayAndSplitsAtBlanks) {
  const std::pair<std::wstring, std::vector<std::string>> cases[] = {
      {L"  a --b  c\td ", {"a", "--b", "c", "d"}},
      {L"\"/x y/cli.exe\" --port 1", {"/x y/cli.exe", "--port", "1"}},
      {L"--name=\"a b\"c \"\" \"/caf\u00e9\"", {"--name=a bc", "", "/caf\xc3\xa9"}},
      {L"", {}},
  };
  for (const auto& [line, words] : cases) EXPECT_EQ(splitCommandLine(line), words);
}

TEST(PathText, IsEmptyForWhatANulWouldCutShort) {
  EXPECT_EQ(pathText(L"/caf\u00e9"), "/caf\xc3\xa9");
  EXPECT_EQ(pathText(std::wstring(L"/a\0b", 4)), "");
}

}  // namespace
}  // namespace media::win::chrome_inspect
