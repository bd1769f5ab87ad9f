#include "platform/known_folders.h"

#include <gtest/gtest.h>

#include "support/test_environment.h"

namespace media::win::chrome_inspect {
namespace {

// Windows has the folders in any case; elsewhere these variables stand for them.
class KnownFolders : public testing::Test {
 protected:
  void SetUp() override {
    setEnvironment("APPDATA", "/roaming/");
    setEnvironment("LOCALAPPDATA", "/local");
  }
};

TEST_F(KnownFolders, AreThereWithoutTrailingSeparator) {
  std::wstring roaming;
  std::wstring local;
  ASSERT_TRUE(roamingAppDataFolder(roaming));
  ASSERT_TRUE(localAppDataFolder(local));
  EXPECT_NE(roaming, local);
  for (const std::wstring& folder : {roaming, local}) {
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(std::wstring(L"/\\").find(folder.back()), std::wstring::npos);
  }
}

TEST_F(KnownFolders, GiveNoPackageFolderOutsideAPackage) {
  std::wstring folder = L"before";
  EXPECT_FALSE(packageLocalStateFolder(folder));
  EXPECT_EQ(folder, L"before");
}

}  // namespace
}  // namespace media::win::chrome_inspect
