#include "agent/cli_location.h"

#include <optional>
#include <utility>

#include "agent/cli_dir.h"
#include "common/paths.h"
#include "common/wide.h"
#include "host/channel/host_log.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "platform/registry.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const wchar_t* registryKey =
    L"Software\\Google\\Chrome\\NativeMessagingHosts\\com.quenlark.morva.chrome";
constexpr std::size_t maxRegistryBytes = 65536;

// `path` as a location when a file is there; the log line begins with the source's name either way.
std::optional<CliLocation> takeIfThere(const std::string& source, std::wstring path) {
  std::string pathUtf8 = toUtf8(path);
  if (!isExistingFile(path)) {
    appendDebugLog(source + " missing " + pathUtf8, "warn");
    return std::nullopt;
  }
  appendDebugLog(source + " " + pathUtf8);
  return CliLocation{std::move(path), std::move(pathUtf8)};
}

std::optional<CliLocation> fromOptions() {
  const std::wstring folder = savedCliDir();
  if (folder.empty()) {
    appendDebugLog("cli options (none)");
    return std::nullopt;
  }
  if (isInsideWindowsApps(folder)) {
    appendDebugLog("cli options inside WindowsApps " + toUtf8(folder), "warn");
    return std::nullopt;
  }
  return takeIfThere("cli options", joinPath(folder, cliName));
}

std::optional<CliLocation> fromRegistry() {
  std::string data;
  if (!readUserRegistryString(registryKey, L"cli", maxRegistryBytes, data)) {
    appendDebugLog("cli registry (none)");
    return std::nullopt;
  }
  return takeIfThere("cli registry", wideFromUtf16Bytes(data));
}

std::optional<CliLocation> fromAlias() {
  std::wstring folder;
  if (!localAppDataFolder(folder)) {
    appendDebugLog("cli alias LocalAppData unavailable", "warn");
    return std::nullopt;
  }
  for (const wchar_t* name : {L"Microsoft", L"WindowsApps", cliName})
    folder = joinPath(folder, name);
  return takeIfThere("cli alias", folder);
}

std::optional<CliLocation> fromSearchPath() {
  std::wstring path;
  if (!searchExecutable(cliName, path)) {
    appendDebugLog("cli SearchPath miss", "error");
    return std::nullopt;
  }
  CliLocation found{path, toUtf8(path)};
  appendDebugLog("cli SearchPath " + found.pathUtf8);
  return found;
}

}  // namespace

CliLocation locateCli() {
  for (const auto source : {fromOptions, fromRegistry, fromAlias, fromSearchPath}) {
    if (std::optional<CliLocation> found = source()) return std::move(*found);
  }
  return {};
}

bool isInsideWindowsApps(std::wstring_view path) {
  std::wstring folded(path);
  for (wchar_t& c : folded) {
    if (c == L'/') c = L'\\';
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  return folded.find(L"\\windowsapps\\") != std::wstring::npos;
}

}  // namespace media::win::chrome_inspect
