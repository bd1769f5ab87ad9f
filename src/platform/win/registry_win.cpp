#include "platform/registry.h"

#include <windows.h>

#include <functional>

#include "platform/owned.h"

namespace media::win::chrome_inspect {
namespace {

constexpr DWORD maxKeyName = 256;      // with terminator
constexpr DWORD maxValueName = 16384;  // with terminator

struct KeyTraits {
  using Raw = HKEY;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { RegCloseKey(raw); }
};
using OwnedKey = Owned<KeyTraits>;

HKEY handleOf(RegistryRoot root) {
  return root == RegistryRoot::user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

OwnedKey openKey(RegistryRoot root, const std::wstring& key, REGSAM access, LSTATUS& status) {
  HKEY opened = nullptr;
  status = RegOpenKeyExW(handleOf(root), key.c_str(), 0, access, &opened);
  return OwnedKey(status == ERROR_SUCCESS ? opened : nullptr);
}

OwnedKey openToRead(RegistryRoot root, const std::wstring& key, RegistryView view) {
  LSTATUS ignored = ERROR_SUCCESS;
  const REGSAM flag = view == RegistryView::bits32 ? KEY_WOW64_32KEY : KEY_WOW64_64KEY;
  return openKey(root, key, KEY_READ | flag, ignored);
}

// Reads a value of exactly this type; `size` is the room, and then what there was.
bool readValue(const OwnedKey& key, const std::wstring& value, DWORD wantedType, void* buffer,
               DWORD& size) {
  DWORD type = REG_NONE;
  const LSTATUS status =
      RegQueryValueExW(key.get(), value.c_str(), nullptr, &type, static_cast<BYTE*>(buffer), &size);
  return status == ERROR_SUCCESS && type == wantedType;
}

// Collects the names that `next` writes; it takes an index, room for a name, and its size.
using NextName = std::function<LSTATUS(DWORD index, wchar_t* name, DWORD& size)>;
bool listNames(DWORD room, const NextName& next, std::vector<std::wstring>& names) {
  std::wstring name(room, L'\0');
  for (DWORD index = 0;; ++index) {
    DWORD size = room;
    const LSTATUS status = next(index, name.data(), size);
    if (status == ERROR_NO_MORE_ITEMS) return true;
    if (status != ERROR_SUCCESS) return false;
    names.emplace_back(name, 0, size);
  }
}

bool succeeded(LSTATUS status, std::uint32_t& systemError) {
  if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND) return true;
  systemError = static_cast<std::uint32_t>(status);
  return false;
}

}  // namespace

bool readRegistryString(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                        std::size_t maxBytes, std::string& data, RegistryView view) {
  const OwnedKey opened = openToRead(root, key, view);
  if (!opened) return false;
  std::string buffer(maxBytes, '\0');
  auto size = static_cast<DWORD>(buffer.size());
  if (!readValue(opened, value, REG_SZ, buffer.data(), size)) return false;
  buffer.resize(size);
  data = std::move(buffer);
  return true;
}

bool readRegistryNumber(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                        std::uint32_t& number) {
  const OwnedKey opened = openToRead(root, key, RegistryView::bits64);
  DWORD found = 0;
  DWORD size = sizeof found;
  if (!opened || !readValue(opened, value, REG_DWORD, &found, size)) return false;
  number = found;
  return true;
}

bool listRegistryKey(RegistryRoot root, const std::wstring& key, RegistryKeyContent& content) {
  const OwnedKey opened = openToRead(root, key, RegistryView::bits64);
  RegistryKeyContent found;
  const auto nextKey = [&](DWORD index, wchar_t* name, DWORD& size) {
    return RegEnumKeyExW(opened.get(), index, name, &size, nullptr, nullptr, nullptr, nullptr);
  };
  const auto nextValue = [&](DWORD index, wchar_t* name, DWORD& size) {
    return RegEnumValueW(opened.get(), index, name, &size, nullptr, nullptr, nullptr, nullptr);
  };
  if (!opened || !listNames(maxKeyName, nextKey, found.keys) ||
      !listNames(maxValueName, nextValue, found.values)) {
    return false;
  }
  content = std::move(found);
  return true;
}

bool mayWriteRegistry(RegistryRoot root) {
  LSTATUS ignored = ERROR_SUCCESS;
  return static_cast<bool>(openKey(root, L"Software", KEY_WRITE, ignored));
}

bool writeRegistryString(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                         const std::wstring& text, std::uint32_t& systemError) {
  const auto size = static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t));
  // Makes the key, and what is missing above it, at the same time.
  return succeeded(
      RegSetKeyValueW(handleOf(root), key.c_str(), value.c_str(), REG_SZ, text.c_str(), size),
      systemError);
}

bool deleteRegistryValue(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                         std::uint32_t& systemError) {
  LSTATUS status = ERROR_SUCCESS;
  const OwnedKey opened = openKey(root, key, KEY_SET_VALUE, status);
  if (opened) status = RegDeleteValueW(opened.get(), value.c_str());
  return succeeded(status, systemError);
}

bool deleteRegistryKeyIfEmpty(RegistryRoot root, const std::wstring& key,
                              std::uint32_t& systemError) {
  RegistryKeyContent content;
  if (!listRegistryKey(root, key, content)) return true;
  if (!content.keys.empty() || !content.values.empty()) return true;
  return succeeded(RegDeleteKeyW(handleOf(root), key.c_str()), systemError);
}

}  // namespace media::win::chrome_inspect
