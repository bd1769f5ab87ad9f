#include "text/ascii.h"

#include <algorithm>

namespace media::win::chrome_inspect {

std::string foldCase(std::string_view text) {
  std::string folded(text);
  for (char& c : folded) c = foldCase(c);
  return folded;
}

bool equalsFolded(std::string_view text, std::string_view lower) {
  return std::equal(text.begin(), text.end(), lower.begin(), lower.end(),
                    [](char a, char b) { return foldCase(a) == b; });
}

std::string hexDigits(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4U];
    text += digits[byte & 0xFU];
  }
  return text;
}

}  // namespace media::win::chrome_inspect
