#include "platform/registry.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

namespace fs = std::filesystem;

// The first byte of a value's file; what the value holds comes behind it.
constexpr char textType = '1';
constexpr char numberType = '4';

// A key is a folder, and a value a file in it; its name has a "=" in front, so that the empty one
// has a file, too, and none is taken for a key.
fs::path folderOf(RegistryRoot root, std::wstring key, RegistryView view = RegistryView::bits64) {
  const char* registry = std::getenv("MORVA_REGISTRY");
  if (registry == nullptr) return {};
  constexpr std::wstring_view software = L"Software\\";
  if (root == RegistryRoot::machine && view == RegistryView::bits32 && key.starts_with(software)) {
    key.insert(software.size(), L"WOW6432Node\\");
  }
  for (wchar_t& c : key) c = c == L'\\' ? L'/' : c;
  return fs::path(registry) / (root == RegistryRoot::user ? "user" : "machine") / toUtf8(key);
}

fs::path fileOf(const fs::path& folder, const std::wstring& value) {
  return folder.empty() ? folder : folder / ("=" + toUtf8(value));
}

// A text as it is stored: little-endian, with a terminator.
std::string utf16BytesOf(const std::wstring& text) {
  std::u16string units;
  for (const wchar_t c : text) {
    const std::uint32_t code = static_cast<char32_t>(c);
    if (code >= 0x10000) units += static_cast<char16_t>(0xD7C0 + (code >> 10U));
    units += static_cast<char16_t>(code < 0x10000 ? code : 0xDC00 + (code & 0x3FFU));
  }
  return {reinterpret_cast<const char*>(units.c_str()), (units.size() + 1) * sizeof(char16_t)};
}

bool readValue(const fs::path& path, char wantedType, std::string& data) {
  std::ifstream file(path, std::ios::binary);
  char type = 0;
  if (!file.get(type) || type != wantedType) return false;
  data.assign(std::istreambuf_iterator<char>(file), {});
  return true;
}

bool succeeded(bool done, std::uint32_t& systemError, const std::error_code& error) {
  if (!done) systemError = error ? static_cast<std::uint32_t>(error.value()) : ENOSYS;
  return done;
}

}  // namespace

bool readRegistryString(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                        std::size_t maxBytes, std::string& data, RegistryView view) {
  std::string found;
  if (!readValue(fileOf(folderOf(root, key, view), value), textType, found)) return false;
  if (found.size() > maxBytes) return false;
  data = std::move(found);
  return true;
}

bool readRegistryNumber(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                        std::uint32_t& number) {
  std::string found;
  if (!readValue(fileOf(folderOf(root, key), value), numberType, found)) return false;
  if (found.size() != sizeof number) return false;
  std::memcpy(&number, found.data(), sizeof number);
  return true;
}

bool listRegistryKey(RegistryRoot root, const std::wstring& key, RegistryKeyContent& content) {
  std::error_code error;
  RegistryKeyContent found;
  for (const fs::directory_entry& entry : fs::directory_iterator(folderOf(root, key), error)) {
    const std::string name = entry.path().filename().string();
    const bool isValue = name.starts_with('=');
    (isValue ? found.values : found.keys).push_back(toWide(name.substr(isValue ? 1 : 0)));
  }
  if (error) return false;
  content = std::move(found);
  return true;
}

bool mayWriteRegistry(RegistryRoot root) {
  return root == RegistryRoot::user || !folderOf(root, L"").empty();
}

bool writeRegistryString(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                         const std::wstring& text, std::uint32_t& systemError) {
  const fs::path folder = folderOf(root, key);
  std::error_code error;
  if (!folder.empty()) fs::create_directories(folder, error);
  std::ofstream file(fileOf(folder, value), std::ios::binary | std::ios::trunc);
  file << textType << utf16BytesOf(text);
  return succeeded(static_cast<bool>(file.flush()), systemError, error);
}

bool deleteRegistryValue(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                         std::uint32_t& systemError) {
  const fs::path folder = folderOf(root, key);
  std::error_code error;
  fs::remove(fileOf(folder, value), error);
  return succeeded(!folder.empty() && !error, systemError, error);
}

bool deleteRegistryKeyIfEmpty(RegistryRoot root, const std::wstring& key,
                              std::uint32_t& systemError) {
  const fs::path folder = folderOf(root, key);
  std::error_code error;
  fs::remove(folder, error);
  const bool stays = error == std::errc::directory_not_empty;
  return succeeded(!folder.empty() && (!error || stays), systemError, error);
}

}  // namespace media::win::chrome_inspect
