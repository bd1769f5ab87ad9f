#include "agent_process/cli_location.h"

#include "agent_process/cli_dir.h"
#include "channel/host_log.h"
#include "common/paths.h"
#include "platform/known_folders.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using Lines = std::vector<std::string>;

TEST(IsInsideWindowsApps, UnderstandsEveryWayToWriteIt) {
  const struct {
    const wchar_t* path;
    bool inside;
  } cases[] = {
      {L"C:\\Program Files\\WindowsApps\\x", true},
      {L"C:/Program Files/WindowsApps/x", true},
      {L"c:/program files\\WINDOWSAPPS/x", true},
      {L"\\windowsapps\\", true},
      {L"/WindowsApps/", true},
      {L"C:\\WindowsApps", false},
      {L"WindowsApps\\x", false},
      {L"C:\\MyWindowsApps\\x", false},
      {L"C:\\WindowsApps2\\x", false},
      {L"C:\\Windows Apps\\x", false},
      {L"", false},
      {L"C:\\w\u0130ndowsapps\\x", false},
  };
  for (const auto& c : cases) EXPECT_EQ(isInsideWindowsApps(c.path), c.inside) << toUtf8(c.path);
}

// What the log says of a look, as "level text".
Lines logged() {
  Lines lines;
  for (const nlohmann::json& line : takeDebugLogEvents(40)) {
    lines.push_back(line.at(0).at("level").get<std::string>() + " " +
                    line.at(0).at("text").get<std::string>());
  }
  return lines;
}

// Nothing is installed: no search path, and a fresh local folder where the system lets us choose.
class LocateCli : public testing::Test {
 protected:
  LocateCli()
      : path_("PATH", toUtf8(folder_.path().wstring())),
        local_("LOCALAPPDATA", toUtf8(folder_.path().wstring())) {}

  std::wstring folder() const { return folder_.path().wstring(); }

  std::string aliasMissing() const {
    std::wstring alias;
    if (!localAppDataFolder(alias)) return "warn cli alias LocalAppData unavailable";
    for (const wchar_t* name : {L"Microsoft", L"WindowsApps", cliName})
      alias = joinPath(alias, name);
    return "warn cli alias missing " + toUtf8(alias);
  }

  TestFolder folder_;
  EnvironmentVariable path_;
  EnvironmentVariable local_;
};

TEST_F(LocateCli, LeavesALineForEachSource) {
  EXPECT_EQ(locateCli().path, L"");
  EXPECT_EQ(logged(), (Lines{"trace cli options (none)", "trace cli registry (none)",
                             aliasMissing(), "error cli SearchPath miss"}));
}

TEST_F(LocateCli, TakesTheSavedFolderFirst) {
  const std::wstring file = joinPath(folder(), cliName);
  std::ofstream(folder_.path() / cliNameUtf8) << "x";
  saveCliDir(folder());
  const CliLocation found = locateCli();
  EXPECT_EQ(found.path, file);
  EXPECT_EQ(found.pathUtf8, toUtf8(file));
  EXPECT_EQ(logged(), Lines{"trace cli options " + toUtf8(file)});
}

TEST_F(LocateCli, PassesOverASavedFolderWithoutIt) {
  saveCliDir(folder());
  EXPECT_EQ(locateCli().path, L"");
  const Lines lines = logged();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[0], "warn cli options missing " + toUtf8(joinPath(folder(), cliName)));
}

TEST_F(LocateCli, DoesNotTakeAFolderForTheProgram) {
  // Not on the search path: Windows' own search takes a folder.
  const TestFolder saved;
  std::filesystem::create_directory(saved.path() / cliNameUtf8);
  saveCliDir(saved.path().wstring());
  EXPECT_EQ(locateCli().path, L"");
  EXPECT_EQ(logged().front(),
            "warn cli options missing " + toUtf8(joinPath(saved.path().wstring(), cliName)));
}

TEST_F(LocateCli, NeverUsesASavedFolderOfThePackagedApps) {
  saveCliDir(L"C:/Program Files/WindowsApps/x");
  EXPECT_EQ(locateCli().path, L"");
  EXPECT_EQ(logged().front(), "warn cli options inside WindowsApps C:/Program Files/WindowsApps/x");
}

TEST_F(LocateCli, LooksAlongTheSearchPathLast) {
  const std::filesystem::path file = folder_.path() / cliNameUtf8;
  std::ofstream(file) << "x";
  std::filesystem::permissions(file, std::filesystem::perms::owner_all);
  const CliLocation found = locateCli();
  EXPECT_TRUE(std::filesystem::equivalent(found.path, file));
  const Lines lines = logged();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_EQ(lines[3], "trace cli SearchPath " + found.pathUtf8);
}

TEST_F(LocateCli, TakesTheAlias) {
  std::wstring local;
  ASSERT_TRUE(localAppDataFolder(local));
  const std::filesystem::path folder = std::filesystem::path(local) / "Microsoft" / "WindowsApps";
  const bool made = std::filesystem::create_directories(folder);
  std::ofstream(folder / cliNameUtf8) << "x";
  const CliLocation found = locateCli();
  EXPECT_EQ(std::filesystem::path(found.path), folder / cliNameUtf8);
  const Lines lines = logged();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[2], "trace cli alias " + found.pathUtf8);
  // Where the system does not let us choose the folder, others look there too.
  std::filesystem::remove(folder / cliNameUtf8);
  if (made) std::filesystem::remove(folder);
}

}  // namespace
}  // namespace media::win::chrome_inspect
