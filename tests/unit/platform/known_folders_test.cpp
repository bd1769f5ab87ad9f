#include "platform/known_folders.h"

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace media::win::chrome_inspect {
namespace {

TEST(KnownFolders, HaveNoTrailingSeparatorAndNoPackage) {
  // Windows has the folders in any case; elsewhere these variables stand for them.
  setEnvironment("APPDATA", "/roaming/");
  setEnvironment("LOCALAPPDATA", "/local");
  std::wstring roaming;
  std::wstring local;
  std::wstring package = L"before";
  ASSERT_TRUE(roamingAppDataFolder(roaming));
  ASSERT_TRUE(localAppDataFolder(local));
  EXPECT_NE(roaming, local);
  for (const std::wstring& folder : {roaming, local}) {
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(std::wstring(L"/\\").find(folder.back()), std::wstring::npos);
  }
  EXPECT_FALSE(packageLocalStateFolder(package));
  EXPECT_EQ(package, L"before");
}

}  // namespace
}  // namespace media::win::chrome_inspect
