#pragma once

#include <string>
#include <string_view>

// Between UTF-8, which the host uses inside, and the wide strings of system calls: UTF-16 on
// Windows, UTF-32 on the systems of the twin.
namespace media::win::chrome_inspect {

// False, and `wide` untouched, when `text` is not valid UTF-8.
bool wideFromUtf8(std::string_view text, std::wstring& wide);

// For text that is our own or already valid: ill-formed sequences become U+FFFD.
std::wstring toWide(std::string_view text);

// Lone surrogates, which Windows allows in file names, become U+FFFD.
std::string toUtf8(std::wstring_view wide);

// `bytes` as UTF-16 little-endian text up to its first NUL, as registry values are stored: the size
// may be odd (the last byte is ignored) and there may be no NUL.
std::wstring wideFromUtf16Bytes(std::string_view bytes);

}  // namespace media::win::chrome_inspect
