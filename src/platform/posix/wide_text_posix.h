#pragma once

#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// Between the wide strings of the seam, UTF-32 here, and the UTF-8 of system calls. What is no
// Unicode text becomes U+FFFD.
std::string narrowText(std::wstring_view wide);
std::wstring wideText(std::string_view narrow);

// The UTF-8 of `wide` for a call that wants a terminated path; empty when it holds a NUL, which
// would cut it short.
std::string narrowPath(const std::wstring& wide);

}  // namespace media::win::chrome_inspect
