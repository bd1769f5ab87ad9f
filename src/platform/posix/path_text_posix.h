#pragma once

#include <string>

#include "text/wide.h"

namespace media::win::chrome_inspect {

// The UTF-8 of `path` for a call that takes a terminated text; empty, which names nothing, when it
// holds a NUL, which would cut it short.
inline std::string pathText(const std::wstring& path) {
  return path.find(L'\0') == std::wstring::npos ? toUtf8(path) : std::string();
}

}  // namespace media::win::chrome_inspect
