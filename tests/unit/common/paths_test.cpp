#include "common/paths.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/files.h"

namespace media::win::chrome_inspect {
namespace {

TEST(JoinPath, PutsOneSeparatorBetween) {
  const std::wstring s(1, pathSeparator);
  const struct {
    std::wstring folder;
    std::wstring wanted;
  } cases[] = {
      {L"a", L"a" + s + L"n"}, {L"a" + s, L"a" + s + L"n"}, {L"a/", L"a/n"}, {L"", L"n"},
      {s, s + L"n"},
  };
  for (const auto& c : cases) EXPECT_EQ(joinPath(c.folder, L"n"), c.wanted);
}

TEST(HostDataFolder, IsTheSameEachTimeAndEndsInOurName) {
  const std::wstring& folder = hostDataFolder();
  EXPECT_EQ(&hostDataFolder(), &folder);
  if (folder.empty()) return;  // this system names no folder for the user
  EXPECT_TRUE(folder.ends_with(L"chrome-extension"));
  EXPECT_TRUE(isExistingFolder(folder));
}

}  // namespace
}  // namespace media::win::chrome_inspect
