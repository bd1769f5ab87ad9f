#include "platform/environment.h"

#include <windows.h>

namespace media::win::chrome_inspect {

bool readEnvironment(const std::wstring& name, std::size_t maxCharacters, std::wstring& value) {
  std::wstring buffer(maxCharacters, L'\0');
  const auto size = static_cast<DWORD>(buffer.size());
  const DWORD length = GetEnvironmentVariableW(name.c_str(), buffer.data(), size);
  if (length == 0 || length >= size) return false;
  value = buffer.substr(0, length);
  return true;
}

}  // namespace media::win::chrome_inspect
