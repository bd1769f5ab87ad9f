#include "agent_process/cli_dir.h"

#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(CliDir, IsEmptyAtFirstAndThenTheLastOne) {
  EXPECT_EQ(savedCliDir(), L"");
  saveCliDir(L"a");
  saveCliDir(L"b c");
  EXPECT_EQ(savedCliDir(), L"b c");
}

TEST(CliDir, IsAlwaysAWholeOne) {
  saveCliDir(std::wstring(100, L'0'));
  runThreads(4, [](int number) {
    const std::wstring mine(100, static_cast<wchar_t>(L'a' + number));
    for (int i = 0; i < 500; ++i) {
      saveCliDir(mine);
      const std::wstring seen = savedCliDir();
      ASSERT_EQ(seen, std::wstring(100, seen.front()));
    }
  });
}

}  // namespace
}  // namespace media::win::chrome_inspect
