#include "text/url_escape.h"

namespace media::win::chrome_inspect {
namespace {

bool isUnreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || c == '~';
}

bool fitsTarget(char c) { return c > ' ' && c < '\x7f' && c != '"' && c != '#'; }

std::string escapeUnless(std::string_view text, bool (*fits)(char c)) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string escaped;
  for (const char c : text) {
    if (fits(c)) {
      escaped += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    escaped += '%';
    escaped += digits[byte >> 4U];
    escaped += digits[byte & 0xFU];
  }
  return escaped;
}

}  // namespace

std::string percentEncode(std::string_view text) { return escapeUnless(text, isUnreserved); }

std::string escapeTarget(std::string_view target) { return escapeUnless(target, fitsTarget); }

}  // namespace media::win::chrome_inspect
