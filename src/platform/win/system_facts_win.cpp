#include "platform/system_facts.h"

#include <windows.h>

namespace media::win::chrome_inspect {
namespace {

constexpr DWORD maxPath = 32768;

// Returns the real version; the documented calls return what the program's manifest names.
using GetVersionCall = LONG(WINAPI*)(OSVERSIONINFOW* info);

}  // namespace

bool ownProgramPath(std::wstring& path) {
  std::wstring found(maxPath, L'\0');
  const DWORD length = GetModuleFileNameW(nullptr, found.data(), maxPath);
  if (length == 0 || length >= maxPath) return false;
  found.resize(length);
  path = found.starts_with(LR"(\\?\)") ? found.substr(4) : found;
  return true;
}

std::string systemVersion() {
  const FARPROC found = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
  if (found == nullptr) return {};
  const auto getVersion = reinterpret_cast<GetVersionCall>(reinterpret_cast<void*>(found));
  OSVERSIONINFOW info = {};
  info.dwOSVersionInfoSize = sizeof info;
  if (getVersion(&info) != 0) return {};
  return "Windows " + std::to_string(info.dwMajorVersion) + "." +
         std::to_string(info.dwMinorVersion) + "." + std::to_string(info.dwBuildNumber);
}

}  // namespace media::win::chrome_inspect
