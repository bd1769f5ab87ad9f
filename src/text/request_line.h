#pragma once

#include <string_view>

namespace media::win::chrome_inspect {

// Whether `part` (a verb, or a path with query) can stand in an HTTP request line as it is (RFC
// 9112, section 3): not empty, and no blank or control character, which would begin something else.
// Characters past ASCII are left to the client, which sends them percent-encoded.
inline bool fitsRequestLine(std::wstring_view part) {
  for (const wchar_t character : part) {
    if (character <= L' ' || character == L'\x7f') return false;
  }
  return !part.empty();
}

}  // namespace media::win::chrome_inspect
