#include "platform/files.h"

#include <windows.h>

#include "platform/win/long_path_win.h"

namespace media::win::chrome_inspect {

const wchar_t pathSeparator = L'\\';

bool isExistingFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool isExistingFolder(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool makeFolder(const std::wstring& path) {
  return CreateDirectoryW(longPath(path).c_str(), nullptr) || isExistingFolder(path);
}

bool searchExecutable(const std::wstring& name, std::wstring& path) {
  wchar_t found[MAX_PATH] = {};
  const DWORD length = SearchPathW(nullptr, name.c_str(), nullptr, MAX_PATH, found, nullptr);
  if (length == 0 || length >= MAX_PATH) return false;
  path.assign(found, length);
  return true;
}

}  // namespace media::win::chrome_inspect
