#pragma once

#include <cstddef>
#include <string>

namespace media::win::chrome_inspect {

// What no variable of Windows has (learn.microsoft.com, GetEnvironmentVariableW).
inline constexpr std::size_t maxVariableCharacters = 32768;

// Reads an environment variable of this process. False when it is missing, empty, or has
// `maxCharacters` or more. Windows side: GetEnvironmentVariableW.
bool readEnvironment(const std::wstring& name, std::size_t maxCharacters, std::wstring& value);

}  // namespace media::win::chrome_inspect
