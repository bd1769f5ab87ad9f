#include "browser_tools/browser_context.h"

#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(BrowserContext, IsNullAtFirstAndThenTheLastOne) {
  EXPECT_TRUE(browserContext().is_null());
  setBrowserContext({{"currentUrl", "a"}, {"currentTitle", "t"}});
  setBrowserContext({{"currentUrl", "b"}});
  EXPECT_EQ(browserContext().dump(), R"({"currentUrl":"b"})");
}

TEST(BrowserContext, IsAlwaysAWholeOne) {
  setBrowserContext({{"a", 0}, {"b", 0}});
  runThreads(4, [](int number) {
    for (int i = 0; i < 100; ++i) {
      setBrowserContext({{"a", number}, {"b", number}});
      const json seen = browserContext();
      ASSERT_EQ(seen.at("a"), seen.at("b"));
    }
  });
}

}  // namespace
}  // namespace media::win::chrome_inspect
