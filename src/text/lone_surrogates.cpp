#include "text/lone_surrogates.h"

#include <algorithm>

#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

// The value of the escape \uXXXX at `at`, or -1 when none stands there.
int unicodeEscapeAt(std::string_view text, std::size_t at) {
  if (text.size() < at + 6 || text[at] != '\\' || text[at + 1] != 'u') return -1;
  int value = 0;
  for (std::size_t i = at + 2; i < at + 6; ++i) {
    const int digit = hexDigitValue(text[i]);
    if (digit < 0) return -1;
    value = value * 16 + digit;
  }
  return value;
}

bool isHigh(int unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLow(int unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

bool repairLoneSurrogates(std::string_view text, std::string& repaired) {
  bool found = false;
  repaired.reserve(text.size());  // both escapes are of the same length
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t escape = std::min(text.find('\\', at), text.size());
    repaired += text.substr(at, escape - at);
    at = escape;
    if (at == text.size()) break;
    const int unit = unicodeEscapeAt(text, at);
    std::size_t size = std::min<std::size_t>(unit >= 0 ? 6 : 2, text.size() - at);
    if (isHigh(unit) && isLow(unicodeEscapeAt(text, at + 6))) size = 12;
    const bool lone = size == 6 && (isHigh(unit) || isLow(unit));
    found = found || lone;
    repaired += lone ? std::string_view("\\ufffd") : text.substr(at, size);
    at += size;
  }
  return found;
}

}  // namespace media::win::chrome_inspect
