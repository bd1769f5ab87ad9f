#include "agent_process/cli_location.h"

#include <utility>

#include "agent_process/cli_dir.h"
#include "channel/host_log.h"
#include "common/bounded.h"
#include "common/paths.h"
#include "common/product_names.h"
#include "common/reachable.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "platform/registry.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t maxRegistryBytes = 65536;

// What is to be said of a file that a source names.
CliLook lookFor(const char* source, std::wstring path) {
  const CliOutcome outcome = isReachableFile(path) ? CliOutcome::found : CliOutcome::missing;
  return {source, outcome, std::move(path)};
}

CliLook lookAtOptions() {
  constexpr const char* source = "cli options";
  std::wstring folder = savedCliDir();
  if (folder.empty()) return {source, CliOutcome::notSet, {}};
  if (isInsideWindowsApps(folder)) {
    return {source, CliOutcome::insideWindowsApps, std::move(folder)};
  }
  return lookFor(source, joinPath(folder, cliName));
}

CliLook lookAtRegistry() {
  constexpr const char* source = "cli registry";
  const std::wstring key = nativeHostKey(chromeVendorKey);
  std::string data;
  if (!readRegistryString(RegistryRoot::user, key, L"cli", maxRegistryBytes, data)) {
    return {source, CliOutcome::notSet, {}};
  }
  return lookFor(source, wideFromUtf16Bytes(data));
}

CliLook lookAtAlias() {
  constexpr const char* source = "cli alias";
  std::wstring folder;
  if (!localAppDataFolder(folder)) return {source, CliOutcome::unavailable, {}};
  for (const wchar_t* name : {L"Microsoft", L"WindowsApps", cliName})
    folder = joinPath(folder, name);
  return lookFor(source, folder);
}

std::wstring searchForFile() {
  std::wstring path;
  // The search also finds folders of that name.
  return searchExecutable(cliName, path) && isFileAsWritten(path) ? path : std::wstring();
}

CliLook lookAlongSearchPath() {
  constexpr const char* source = "cli SearchPath";
  auto path = runBounded("file look-up", fileLookMs, searchForFile);
  if (!path || path->empty()) return {source, CliOutcome::notOnPath, {}};
  return {source, CliOutcome::found, std::move(*path)};
}

void logLook(const CliLook& look) {
  const std::string source = look.source;
  const std::string path = toUtf8(look.path);
  switch (look.outcome) {
    case CliOutcome::found:
      return appendDebugLog(source + " " + path);
    case CliOutcome::notSet:
      return appendDebugLog(source + " (none)");
    case CliOutcome::insideWindowsApps:
      return appendDebugLog(source + " inside WindowsApps " + path, "warn");
    case CliOutcome::unavailable:
      return appendDebugLog(source + " LocalAppData unavailable", "warn");
    case CliOutcome::notOnPath:
      return appendDebugLog("cli SearchPath miss", "error");
    case CliOutcome::missing:
      return appendDebugLog(source + " missing " + path, "warn");
  }
}

}  // namespace

CliLook lookAtCliSource(std::size_t index) {
  constexpr CliLook (*sources[cliSourceCount])() = {lookAtOptions, lookAtRegistry, lookAtAlias,
                                                    lookAlongSearchPath};
  return sources[index]();
}

CliLocation locateCli() {
  for (std::size_t i = 0; i < cliSourceCount; ++i) {
    CliLook look = lookAtCliSource(i);
    logLook(look);
    if (look.outcome != CliOutcome::found) continue;
    std::string pathUtf8 = toUtf8(look.path);
    return {std::move(look.path), std::move(pathUtf8)};
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
