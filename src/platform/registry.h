#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The system's registry (learn.microsoft.com, winreg.h). Keys are written with single backslashes,
// without one at the end; the value with the empty name is the key's default value.
// POSIX: folders and files below the folder that MORVA_REGISTRY names, where letter case counts.
// Without that variable there is none: everything fails, with ENOSYS where a system error is an
// output.
namespace media::win::chrome_inspect {

enum class RegistryRoot { user, machine };  // HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE

// Programs of 32 bits have a "Software" of the machine of their own (learn.microsoft.com, "Registry
// Keys Affected by WOW64"); the user's is one for all. Where no view is named it is ours, `bits64`.
enum class RegistryView { bits32, bits64 };

// Reads a value of type REG_SZ into `data`: the raw bytes as stored, UTF-16 little-endian, at most
// `maxBytes` of them, to which the system may add a terminator; nothing promises one, nor an even
// length or no NUL inside. False when key or value is missing, longer, or of another type.
bool readRegistryString(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                        std::size_t maxBytes, std::string& data,
                        RegistryView view = RegistryView::bits64);

// Reads a value of type REG_DWORD; false when it is missing or of another type.
bool readRegistryNumber(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                        std::uint32_t& number);

struct RegistryKeyContent {
  std::vector<std::wstring> keys;    // names of the keys right below
  std::vector<std::wstring> values;  // names of the values
};

// What is in a key; false when it is missing or may not be read.
bool listRegistryKey(RegistryRoot root, const std::wstring& key, RegistryKeyContent& content);

// Whether this process may make keys below "Software": the user's always, the machine's as an
// administrator only.
bool mayWriteRegistry(RegistryRoot root);

// Writes a value of type REG_SZ, making the key and what is missing above it. False sets
// `systemError` (GetLastError's numbers), here and below.
bool writeRegistryString(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                         const std::wstring& text, std::uint32_t& systemError);

// Removes one value; a value, or key, that is not there counts as removed.
bool deleteRegistryValue(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                         std::uint32_t& systemError);

// Removes a key that holds neither keys nor values. One that holds something, or is not there, is
// left as it is, which is no failure.
bool deleteRegistryKeyIfEmpty(RegistryRoot root, const std::wstring& key,
                              std::uint32_t& systemError);

}  // namespace media::win::chrome_inspect
