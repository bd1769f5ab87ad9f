#pragma once

#include <cstddef>
#include <string>

namespace media::win::chrome_inspect {

// Reads a value of type REG_SZ below HKEY_CURRENT_USER into `data`: the raw bytes as stored, UTF-16
// little-endian, at most `maxBytes` of them, to which the system may add a terminator; nothing
// promises one, nor an even length or no NUL inside. False when key or value is missing, longer, or
// of another type. POSIX: always false.
bool readUserRegistryString(const std::wstring& key, const std::wstring& value,
                            std::size_t maxBytes, std::string& data);

}  // namespace media::win::chrome_inspect
