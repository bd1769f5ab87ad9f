#include "platform/known_folders.h"

#include <windows.h>
#include <shlobj.h>

namespace media::win::chrome_inspect {
namespace {

bool folderOf(int id, std::wstring& folder) {
  wchar_t path[MAX_PATH] = {};
  if (SHGetFolderPathW(nullptr, id, nullptr, SHGFP_TYPE_CURRENT, path) != S_OK) return false;
  folder = path;
  return true;
}

// appmodel.h, which not every tool chain has, nor its import library.
using PackageNameCall = LONG(WINAPI*)(UINT32* length, wchar_t* name);
constexpr UINT32 packageNameCapacity = 128;  // PACKAGE_FULL_NAME_MAX_LENGTH and the terminator

// One of this process's package names; false for a process without package identity.
bool packageName(const char* call, std::wstring& name) {
  const FARPROC found = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), call);
  if (found == nullptr) return false;
  const auto getName = reinterpret_cast<PackageNameCall>(reinterpret_cast<void*>(found));
  wchar_t buffer[packageNameCapacity] = {};
  UINT32 length = packageNameCapacity;
  if (getName(&length, buffer) != ERROR_SUCCESS) return false;
  name = buffer;
  return true;
}

}  // namespace

bool roamingAppDataFolder(std::wstring& folder) { return folderOf(CSIDL_APPDATA, folder); }

bool localAppDataFolder(std::wstring& folder) { return folderOf(CSIDL_LOCAL_APPDATA, folder); }

bool packageLocalStateFolder(std::wstring& folder) {
  std::wstring fullName;
  std::wstring familyName;
  std::wstring localAppData;
  if (!packageName("GetCurrentPackageFullName", fullName) ||
      !packageName("GetCurrentPackageFamilyName", familyName) ||
      !localAppDataFolder(localAppData)) {
    return false;
  }
  folder = localAppData + L"\\Packages\\" + familyName + L"\\LocalState";
  return true;
}

}  // namespace media::win::chrome_inspect
