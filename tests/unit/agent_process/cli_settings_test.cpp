#include "agent_process/cli_settings.h"

#include "agent_process/cli_dir.h"
#include "agent_process/cli_location.h"
#include "common/paths.h"
#include "support/test_folder.h"
#include "support/test_thread.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* invalid = "invalid folder";
constexpr const char* missing = "folder does not exist";

struct FolderCase {
  const char* name;
  std::string folder;
  const char* error;
};

const FolderCase folderCases[] = {
    {"1,024 bytes are looked for", std::string(1024, 'a'), missing},
    {"1,025 bytes are not", std::string(1025, 'a'), invalid},
    {"a double quote", "/tmp\"", invalid},
    {"a line feed", "/tmp\n", invalid},
    {"a carriage return", "/tmp\r", invalid},
    {"a NUL", "/tmp\0x"s, invalid},
    {"another control character", "/tmp\x1F", invalid},
    {"a deletion", "/tmp\x7F", invalid},
    {"no UTF-8", "/tmp\xFF", invalid},
    {"inside WindowsApps", "C:/x/windowsAPPS/y", "that folder is inside WindowsApps"},
    {"not there", "/no such folder at all", missing},
};

TEST(ValidateAndSaveCliDir, RefusesWhatIsNoFolder) {
  saveCliDir(L"before");
  for (const FolderCase& c : folderCases) {
    SCOPED_TRACE(c.name);
    std::string error;
    EXPECT_FALSE(validateAndSaveCliDir(c.folder, error));
    EXPECT_EQ(error, c.error);
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

TEST_F(ProbeCliStart, NamesTheSystemsError) {
  EXPECT_TRUE(probeCliStart(program()).starts_with("win32="));  // it is no program
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

struct FeedbackCase {
  std::wstring folder;
  std::wstring cli;
  const char* probe;
  const char* feedback;
};

TEST(CliDirFeedback, IsOneSentenceForEachCase) {
  const std::wstring inFolder = joinPath(L"f", cliName);
  const FeedbackCase cases[] = {
      {L"", L"", "not found", "Cleared. No morva-cli.exe was found."},
      {L"", L"other", "ok", "Cleared. Next start uses other"},
      {L"", L"other", "win32=5", "Cleared. morva-viewer-cli.exe did not start (win32=5)"},
      {L"f", L"other", "ok", "morva-viewer-cli.exe is not in that folder. Next start uses other"},
      {L"f", L"other", "timed out",
       "morva-viewer-cli.exe is not in that folder. Next start morva-viewer-cli.exe did not start "
       "(timed out)"},
      {L"f", L"", "not found",
       "morva-viewer-cli.exe is not in that folder. Next start morva-viewer-cli.exe did not start "
       "(not found)"},
      {L"f", inFolder, "ok", "Saved. morva-viewer-cli.exe starts."},
      {L"f", inFolder, "win32=193", "Saved. morva-viewer-cli.exe did not start (win32=193)"},
  };
  for (const FeedbackCase& c : cases)
    EXPECT_EQ(cliDirFeedback(c.folder, c.cli, c.probe), c.feedback);
}

TEST(DescribeCliDir, DescribesTheProgramInTheSavedFolder) {
  const TestFolder folder;
  const EnvironmentVariable path("PATH", toUtf8(folder.path().wstring()));
  std::ofstream(folder.path() / cliNameUtf8) << "no program";
  saveCliDir(folder.path().wstring());
  const nlohmann::json told = describeCliDir();
  EXPECT_EQ(told.at("dir"), toUtf8(folder.path().wstring()));
  EXPECT_EQ(told.at("cli"), toUtf8(joinPath(folder.path().wstring(), cliName)));
  const auto probe = told.at("probe").get<std::string>();
  EXPECT_TRUE(probe.starts_with("win32=")) << probe;
  EXPECT_EQ(told.at("feedback"), "Saved. morva-viewer-cli.exe did not start (" + probe + ")");
  EXPECT_EQ(told.at("warning"), "morva-viewer-cli.exe did not start (" + probe + ")");
}

}  // namespace
}  // namespace media::win::chrome_inspect
