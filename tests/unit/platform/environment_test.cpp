#include "platform/environment.h"

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace media::win::chrome_inspect {
namespace {

TEST(ReadEnvironment, TakesAValueBelowTheLimitAndNoEmptyOne) {
  const struct {
    std::string stored;
    std::size_t limit;
    bool ok;
  } cases[] = {
      {"C:\\A folder", 32768, true},
      {std::string(30'000, 'x'), 32768, true},
      {"12345", 6, true},
      {"12345", 5, false},
      {"12345", 0, false},
      {"", 32768, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.stored.size() << " of " << c.limit);
    setEnvironment("MORVA_TEST_VARIABLE", c.stored);
    std::wstring value = L"before";
    EXPECT_EQ(readEnvironment(L"MORVA_TEST_VARIABLE", c.limit, value), c.ok);
    EXPECT_EQ(value, c.ok ? std::wstring(c.stored.begin(), c.stored.end()) : L"before");
    EXPECT_FALSE(readEnvironment(L"", c.limit, value));
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
