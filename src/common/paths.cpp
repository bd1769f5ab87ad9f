#include "common/paths.h"

#include <initializer_list>

#include "platform/environment.h"
#include "platform/files.h"
#include "platform/known_folders.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

std::wstring below(std::wstring folder, std::initializer_list<const wchar_t*> names) {
  for (const wchar_t* name : names) folder = joinPath(folder, name);
  return folder;
}

std::wstring dataFolderBelow(bool (*roamingFolder)(std::wstring&)) {
  std::wstring base;
  if (packageLocalStateFolder(base)) return below(base, {L"chrome-extension"});
  if (!roamingFolder(base)) return {};
  return below(base, {L"Quenlark", L"morva-viewer", L"chrome-extension"});
}

std::wstring makeHostDataFolder() {
  std::wstring folder = hostDataFolderPath();
  // Whoever uses it meets the failure and reports it.
  if (!folder.empty()) (void)makeFolderWithParents(folder);
  return folder;
}

}  // namespace

std::wstring joinPath(const std::wstring& folder, const std::wstring& name) {
  if (folder.empty()) return name;
  const wchar_t last = folder.back();
  if (last == L'/' || last == pathSeparator) return folder + name;
  return folder + pathSeparator + name;
}

bool makeFolderWithParents(const std::wstring& path) {
  if (makeFolder(path)) return true;
  const std::size_t separator = path.find_last_of(L"/\\");
  if (separator == std::wstring::npos) return false;
  return makeFolderWithParents(path.substr(0, separator)) && makeFolder(path);
}

std::wstring hostDataFolderPath() { return dataFolderBelow(roamingAppDataFolder); }

std::wstring hostDataFolderPathByEnvironment() {
  return dataFolderBelow([](std::wstring& folder) {
    return readEnvironment(L"APPDATA", maxVariableCharacters, folder);
  });
}

const std::wstring& hostDataFolder() {
  static const std::wstring& folder = leaked<std::wstring>(makeHostDataFolder());
  return folder;
}

}  // namespace media::win::chrome_inspect
