#include "platform/known_folders.h"

#include <cstdlib>

#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

bool folderFrom(const char* variable, std::wstring& folder) {
  const char* value = std::getenv(variable);
  if (value == nullptr || *value == '\0') return false;
  folder = toWide(value);
  while (folder.size() > 1 && folder.back() == L'/') folder.pop_back();
  return true;
}

}  // namespace

bool roamingAppDataFolder(std::wstring& folder) { return folderFrom("APPDATA", folder); }

bool localAppDataFolder(std::wstring& folder) { return folderFrom("LOCALAPPDATA", folder); }

bool packageLocalStateFolder(std::wstring& /*folder*/) {
  return false;  // there are no packages here
}

}  // namespace media::win::chrome_inspect
