#include "platform/system_facts.h"

#include <gtest/gtest.h>

#include "platform/files.h"

namespace media::win::chrome_inspect {
namespace {

TEST(OwnProgramPath, NamesThisProgram) {
  std::wstring path;
  ASSERT_TRUE(ownProgramPath(path));
  EXPECT_TRUE(isExistingFile(path));
  EXPECT_NE(path.find(L"unit_tests"), std::wstring::npos);
}

TEST(SystemVersion, NamesASystemAndANumber) {
  const std::string version = systemVersion();
  EXPECT_NE(version.find_first_of("0123456789"), std::string::npos) << version;
}

}  // namespace
}  // namespace media::win::chrome_inspect
