#include "platform/files.h"

#include <sys/stat.h>

#include <cstdlib>
#include <string_view>

#include "platform/posix/wide_text_posix.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t maxFoundPath = 259;  // as many as the Windows call has room for

bool statusOf(const std::wstring& path, struct stat& status) {
  return ::stat(narrowPath(path).c_str(), &status) == 0;
}

// Takes the part before the next ':' from the front of `list`.
std::string_view takeFolder(std::string_view& list) {
  const std::string_view folder = list.substr(0, list.find(':'));
  list.remove_prefix(folder.size() < list.size() ? folder.size() + 1 : list.size());
  return folder;
}

}  // namespace

const wchar_t pathSeparator = L'/';

bool isExistingFile(const std::wstring& path) {
  struct stat status = {};
  return statusOf(path, status) && !S_ISDIR(status.st_mode);
}

bool isExistingFolder(const std::wstring& path) {
  struct stat status = {};
  return statusOf(path, status) && S_ISDIR(status.st_mode);
}

bool makeFolder(const std::wstring& path) {
  return ::mkdir(narrowPath(path).c_str(), S_IRWXU) == 0 || isExistingFolder(path);
}

bool searchExecutable(const std::wstring& name, std::wstring& path) {
  const char* variable = std::getenv("PATH");
  std::string_view list = variable != nullptr ? variable : "";
  while (!list.empty()) {
    const std::string_view folder = takeFolder(list);
    const std::wstring candidate = wideText(folder.empty() ? "." : folder) + L"/" + name;
    if (candidate.size() > maxFoundPath || !isExistingFile(candidate)) continue;
    path = candidate;
    return true;
  }
  return false;
}

}  // namespace media::win::chrome_inspect
