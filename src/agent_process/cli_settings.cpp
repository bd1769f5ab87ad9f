#include "agent_process/cli_settings.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent_process/cli_dir.h"
#include "agent_process/cli_location.h"
#include "common/bounded.h"
#include "common/paths.h"
#include "common/reachable.h"
#include "platform/process.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t maxFolderBytes = 1024;
constexpr std::uint32_t probeMs = 3000;

// Would end the quoted path in a command line early.
bool breaksCommandLine(char c) {
  return c == '"' || static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

std::string_view folderProblem(std::string_view dirUtf8, std::wstring& folder) {
  if (dirUtf8.size() > maxFolderBytes ||
      std::any_of(dirUtf8.begin(), dirUtf8.end(), breaksCommandLine) ||
      !wideFromUtf8(dirUtf8, folder)) {
    return "invalid folder";
  }
  if (isInsideWindowsApps(folder)) return "that folder is inside WindowsApps";
  return isReachableFolder(folder) ? "" : "folder does not exist";
}

std::string trialOutcome(const std::wstring& path, const StartTrial& trial) {
  std::uint32_t systemError = 0;
  return trial(path, systemError) ? "ok" : "win32=" + std::to_string(systemError);
}

std::string didNotStart(const std::string& probe) {
  return std::string(cliNameUtf8) + " did not start (" + probe + ")";
}

}  // namespace

bool validateAndSaveCliDir(std::string_view dirUtf8, std::string& error) {
  std::wstring folder;
  if (!dirUtf8.empty()) {
    const std::string_view problem = folderProblem(dirUtf8, folder);
    if (!problem.empty()) {
      error = problem;
      return false;
    }
  }
  saveCliDir(std::move(folder));
  return true;
}

std::string probeCliStart(const std::wstring& path, StartTrial trial) {
  if (!isReachableFile(path)) return "not found";
  return runBounded("cli probe", probeMs,
                    [path, trial = std::move(trial)] { return trialOutcome(path, trial); })
      .value_or("timed out");
}

std::string probeCliStart(const std::wstring& path) {
  return probeCliStart(path, probeProcessStart);
}

nlohmann::json describeCliDir() {
  const std::wstring folder = savedCliDir();
  const CliLocation cli = locateCli();
  const std::string probe = probeCliStart(cli.path);
  nlohmann::json answer = {{"dir", toUtf8(folder)},
                           {"cli", cli.pathUtf8},
                           {"probe", probe},
                           {"feedback", cliDirFeedback(folder, cli.path, probe)}};
  if (probe != "ok") answer["warning"] = didNotStart(probe);
  return answer;
}

std::string cliDirFeedback(const std::wstring& folder, const std::wstring& cli,
                           const std::string& probe) {
  const bool starts = probe == "ok";
  if (folder.empty()) {
    if (cli.empty()) return "Cleared. No morva-cli.exe was found.";
    return "Cleared. " + (starts ? "Next start uses " + toUtf8(cli) : didNotStart(probe));
  }
  if (cli == joinPath(folder, cliName)) {
    return "Saved. " + (starts ? std::string(cliNameUtf8) + " starts." : didNotStart(probe));
  }
  return std::string(cliNameUtf8) + " is not in that folder. Next start " +
         (starts ? "uses " + toUtf8(cli) : didNotStart(probe));
}

}  // namespace media::win::chrome_inspect
