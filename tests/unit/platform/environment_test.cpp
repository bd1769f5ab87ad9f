#include "platform/environment.h"

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* name = "MORVA_TEST_VARIABLE";
constexpr const wchar_t* wideName = L"MORVA_TEST_VARIABLE";

TEST(ReadEnvironment, GivesTheValue) {
  setEnvironment(name, "C:\\A folder");
  std::wstring value;
  ASSERT_TRUE(readEnvironment(wideName, 32768, value));
  EXPECT_EQ(value, L"C:\\A folder");
}

TEST(ReadEnvironment, RefusesWhatIsMissingOrEmpty) {
  std::wstring value = L"before";
  EXPECT_FALSE(readEnvironment(L"MORVA_TEST_NO_SUCH_VARIABLE", 32768, value));
  setEnvironment(name, "");
  EXPECT_FALSE(readEnvironment(wideName, 32768, value));
  EXPECT_FALSE(readEnvironment(L"", 32768, value));
  EXPECT_EQ(value, L"before");
}

TEST(ReadEnvironment, RefusesAsManyCharactersAsTheLimit) {
  setEnvironment(name, "12345");
  std::wstring value = L"before";
  EXPECT_FALSE(readEnvironment(wideName, 0, value));
  EXPECT_FALSE(readEnvironment(wideName, 5, value));
  EXPECT_EQ(value, L"before");
  EXPECT_TRUE(readEnvironment(wideName, 6, value));
  EXPECT_EQ(value, L"12345");
}

TEST(ReadEnvironment, TakesALongValue) {
  setEnvironment(name, std::string(30'000, 'x'));
  std::wstring value;
  EXPECT_TRUE(readEnvironment(wideName, 32768, value));
  EXPECT_EQ(value.size(), 30'000U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
