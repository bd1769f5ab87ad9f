#include "platform/registry.h"

#include <windows.h>

#include "platform/owned.h"

namespace media::win::chrome_inspect {
namespace {

struct KeyTraits {
  using Raw = HKEY;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { RegCloseKey(raw); }
};
using OwnedKey = Owned<KeyTraits>;

OwnedKey openUserKey(const std::wstring& key) {
  HKEY opened = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) {
    return OwnedKey();
  }
  return OwnedKey(opened);
}

}  // namespace

bool readUserRegistryString(const std::wstring& key, const std::wstring& value,
                            std::size_t maxBytes, std::string& data) {
  const OwnedKey opened = openUserKey(key);
  if (!opened) return false;
  std::string buffer(maxBytes, '\0');
  DWORD type = REG_NONE;
  auto size = static_cast<DWORD>(buffer.size());
  const LSTATUS status = RegQueryValueExW(opened.get(), value.c_str(), nullptr, &type,
                                          reinterpret_cast<BYTE*>(buffer.data()), &size);
  if (status != ERROR_SUCCESS || type != REG_SZ) return false;
  buffer.resize(size);
  data = std::move(buffer);
  return true;
}

}  // namespace media::win::chrome_inspect
