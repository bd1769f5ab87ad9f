#include "agent_process/cli_settings.h"

#include "agent_process/cli_dir.h"
#include "agent_process/cli_location.h"
#include "channel/host_log.h"
#include "common/paths.h"
#include "support/test_folder.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* invalid = "invalid folder";
constexpr const char* missing = "folder does not exist";

const std::tuple<const char*, std::string, const char*> folderCases[] = {
    {"1,024 bytes are looked for", std::string(1024, 'a'), missing},
    {"1,025 bytes are not", std::string(1025, 'a'), invalid},
    {"a double quote", "/tmp\"", invalid},
    {"a line feed", "/tmp\n", invalid},
    {"a NUL", "/tmp\0x"s, invalid},
    {"another control character", "/tmp\x1F", invalid},
    {"a deletion", "/tmp\x7F", invalid},
    {"no UTF-8", "/tmp\xFF", invalid},
    {"inside WindowsApps", "C:/x/windowsAPPS/y", "that folder is inside WindowsApps"},
    {"not there", "/no such folder at all", missing},
};

TEST(ValidateAndSaveCliDir, RefusesWhatIsNoFolder) {
  saveCliDir(L"before");
  for (const auto& [name, folder, error] : folderCases) {
    SCOPED_TRACE(name);
    std::string why;
    EXPECT_FALSE(validateAndSaveCliDir(folder, why));
    EXPECT_EQ(why, error);
    EXPECT_EQ(savedCliDir(), L"before");
  }
}

TEST(ValidateAndSaveCliDir, SavesFoldersAndClearsThem) {
  const TestFolder folder;
  const std::string pathUtf8 = toUtf8(folder.path().wstring());
  std::string error = "untouched";
  EXPECT_TRUE(validateAndSaveCliDir(pathUtf8, error));
  EXPECT_EQ(toUtf8(savedCliDir()), pathUtf8);
  std::ofstream(folder.path() / "file") << "x";
  EXPECT_FALSE(validateAndSaveCliDir(toUtf8((folder.path() / "file").wstring()), error));
  EXPECT_EQ(error, missing);
  error = "untouched";
  EXPECT_TRUE(validateAndSaveCliDir("", error));
  EXPECT_EQ(savedCliDir(), L"");
  EXPECT_EQ(error, "untouched");
}

class ProbeCliStart : public testing::Test {
 protected:
  ProbeCliStart() { std::ofstream(folder_.path() / "program") << "x"; }
  std::wstring program() const { return (folder_.path() / "program").wstring(); }

  TestFolder folder_;
};

TEST_F(ProbeCliStart, SaysHowTheTrialWent) {
  EXPECT_EQ(probeCliStart(L"/not there", [](auto&, auto&) { return true; }), "not found");
  EXPECT_EQ(probeCliStart(folder_.path().wstring(), [](auto&, auto&) { return true; }),
            "not found");
  EXPECT_EQ(probeCliStart(program(), [](auto&, auto&) { return true; }), "ok");
  const auto refuse = [](const std::wstring&, std::uint32_t& systemError) {
    systemError = 4294967295;
    return false;
  };
  EXPECT_EQ(probeCliStart(program(), refuse), "win32=4294967295");
}

// The trial goes on after the answer was given, with what it owns.
TEST_F(ProbeCliStart, DoesNotWaitLongerThanThreeSeconds) {
  const auto gate = std::make_shared<Gate>();
  const auto ended = std::make_shared<Gate>();
  const auto begin = std::chrono::steady_clock::now();
  const auto stuck = [gate, ended](const std::wstring& path, std::uint32_t& systemError) {
    gate->wait();
    systemError = static_cast<std::uint32_t>(path.size());
    ended->open();
    return false;
  };
  EXPECT_EQ(probeCliStart(program(), stuck), "timed out");
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(took, std::chrono::milliseconds(2900));
  gate->open();
  ended->wait();
}

TEST(CliDirFeedback, IsOneSentenceForEachCase) {
  const std::wstring inFolder = joinPath(L"f", cliName);
  const std::tuple<std::wstring, std::wstring, const char*, const char*> cases[] = {
      {L"", L"", "not found", "Cleared. No morva-cli.exe was found."},
      {L"", L"other", "ok", "Cleared. Next start uses other"},
      {L"", L"other", "win32=5", "Cleared. morva-viewer-cli.exe did not start (win32=5)"},
      {L"f", L"other", "ok", "morva-viewer-cli.exe is not in that folder. Next start uses other"},
      {L"f", L"", "not found",
       "morva-viewer-cli.exe is not in that folder. Next start morva-viewer-cli.exe did not start "
       "(not found)"},
      {L"f", inFolder, "ok", "Saved. morva-viewer-cli.exe starts."},
      {L"f", inFolder, "win32=193", "Saved. morva-viewer-cli.exe did not start (win32=193)"},
  };
  for (const auto& [folder, cli, probe, feedback] : cases)
    EXPECT_EQ(cliDirFeedback(folder, cli, probe), feedback);
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

TEST(IsInsideWindowsApps, UnderstandsEveryWayToWriteIt) {
  const std::pair<const wchar_t*, bool> cases[] = {
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
  for (const auto& [path, inside] : cases)
    EXPECT_EQ(isInsideWindowsApps(path), inside) << toUtf8(path);
}

// Nothing is installed but what is saved.
class LocateCli : public testing::Test {
 protected:
  LocateCli() { saveCliDir(saved_.path().wstring()); }

  // Expects that a look finds this program, and what the log says first of it.
  static void expectFound(const std::wstring& path, const std::string& line) {
    const CliLocation found = locateCli();
    EXPECT_EQ(found.path, path);
    EXPECT_EQ(found.pathUtf8, toUtf8(path));
    const json first = takeDebugLogEvents(40).at(0).at(0);
    EXPECT_EQ(first.at("level").get<std::string>() + first.at("text").get<std::string>(), line);
  }

  // Not on the search path: Windows' own search takes a folder.
  const TestFolder saved_;
  const TestFolder other_;
  const EnvironmentVariable path_{"PATH", toUtf8(other_.path().wstring())};
  const EnvironmentVariable local_{"LOCALAPPDATA", toUtf8(other_.path().wstring())};
  const std::wstring file_ = joinPath(saved_.path().wstring(), cliName);
};

TEST_F(LocateCli, TakesTheSavedFolderFirst) {
  std::ofstream(saved_.path() / cliNameUtf8) << "x";
  expectFound(file_, "tracecli options " + toUtf8(file_));
}

TEST_F(LocateCli, IsDescribedWithTheFolderAndItsTrial) {
  std::ofstream(saved_.path() / cliNameUtf8) << "no program";
  const json described = describeCliDir();
  EXPECT_EQ(described.at("dir"), toUtf8(saved_.path().wstring()));
  EXPECT_EQ(described.at("cli"), toUtf8(file_));
  const std::string probe = described.at("probe");
  EXPECT_THAT(probe, testing::StartsWith("win32="));
  const std::string warning = "morva-viewer-cli.exe did not start (" + probe + ")";
  EXPECT_EQ(described.at("warning"), warning);
  EXPECT_EQ(described.at("feedback"), "Saved. " + warning);
}

TEST_F(LocateCli, PassesOverASavedFolderThatIsOfNoUse) {
  expectFound(L"", "warncli options missing " + toUtf8(file_));
  std::filesystem::create_directory(saved_.path() / cliNameUtf8);
  expectFound(L"", "warncli options missing " + toUtf8(file_));
  saveCliDir(L"C:/Program Files/WindowsApps/x");
  expectFound(L"", "warncli options inside WindowsApps C:/Program Files/WindowsApps/x");
}

}  // namespace
}  // namespace media::win::chrome_inspect
