#include "platform/system_facts.h"

#include <sys/utsname.h>

#include <filesystem>

#include "text/wide.h"

namespace media::win::chrome_inspect {

bool ownProgramPath(std::wstring& path) {
  std::error_code error;
  const std::filesystem::path found = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return false;
  path = toWide(found.string());
  return true;
}

std::string systemVersion() {
  utsname names = {};
  if (uname(&names) != 0) return {};
  return std::string(names.sysname) + " " + names.release;
}

}  // namespace media::win::chrome_inspect
