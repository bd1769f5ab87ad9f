#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The form of an absolute path in which it may exceed 260 characters. The system takes that form
// literally, so shorter paths, and those with forward slashes, are left as they are.
inline std::wstring longPath(const std::wstring& path) {
  constexpr std::size_t shortPath = 240;  // leaves room for what a call appends
  const bool hasDrive = path.size() > 2 && path[1] == L':' && path[2] == L'\\';
  if (path.size() < shortPath || !hasDrive || path.find(L'/') != std::wstring::npos) return path;
  return LR"(\\?\)" + path;
}

}  // namespace media::win::chrome_inspect
