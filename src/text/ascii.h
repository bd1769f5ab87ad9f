#pragma once

#include <string>
#include <string_view>

// ASCII letters without a locale: the functions of <cctype> depend on one and are undefined for
// negative characters. Every other byte is left alone.
namespace media::win::chrome_inspect {

constexpr char foldCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string foldCase(std::string_view text);

// Whether `text`, folded, is `lower`, which is in lower case already.
bool equalsFolded(std::string_view text, std::string_view lower);

// The bytes in hexadecimal, two lower-case digits each.
std::string hexDigits(std::string_view bytes);

// The value of a hexadecimal digit of either case; -1 for any other byte.
constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char lower = foldCase(c);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace media::win::chrome_inspect
