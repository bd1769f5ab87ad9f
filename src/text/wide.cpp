#include "text/wide.h"

#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

constexpr char32_t replacementCharacter = 0xFFFD;

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

char32_t joinSurrogates(char32_t high, char32_t low) {
  return 0x10000 + ((high - 0xD800) << 10U) + (low - 0xDC00);
}

void appendWide(std::wstring& wide, char32_t character) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (character > 0xFFFF) {
      wide += static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10U));
      wide += static_cast<wchar_t>(0xDC00 + ((character - 0x10000) & 0x3FFU));
      return;
    }
  }
  wide += static_cast<wchar_t>(character);
}

void appendUtf8(std::string& text, char32_t character) {
  const auto put = [&text](char32_t byte) { text += static_cast<char>(byte); };
  if (character < 0x80) {
    put(character);
  } else if (character < 0x800) {
    put(0xC0 | (character >> 6U));
    put(0x80 | (character & 0x3FU));
  } else if (character < 0x10000) {
    put(0xE0 | (character >> 12U));
    put(0x80 | ((character >> 6U) & 0x3FU));
    put(0x80 | (character & 0x3FU));
  } else {
    put(0xF0 | (character >> 18U));
    put(0x80 | ((character >> 12U) & 0x3FU));
    put(0x80 | ((character >> 6U) & 0x3FU));
    put(0x80 | (character & 0x3FU));
  }
}

// Decodes the character at `at` of valid UTF-8 and moves `at` behind it.
char32_t nextCharacter(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at++]);
  if (lead < 0x80) return lead;
  const int follow = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
  char32_t character = lead & (0x3FU >> static_cast<unsigned>(follow));
  for (int i = 0; i < follow; ++i) {
    character = (character << 6U) | (static_cast<unsigned char>(text[at++]) & 0x3FU);
  }
  return character;
}

std::wstring wideOfValid(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) appendWide(wide, nextCharacter(text, at));
  return wide;
}

// The character made of the unit at `at` and, for a pair, the next one; moves `at` behind it.
template <class UnitAt>
char32_t joinUnits(const UnitAt& unitAt, std::size_t count, std::size_t& at) {
  const char32_t unit = unitAt(at++);
  if (isHighSurrogate(unit) && at < count && isLowSurrogate(unitAt(at))) {
    return joinSurrogates(unit, unitAt(at++));
  }
  const bool lone = isHighSurrogate(unit) || isLowSurrogate(unit) || unit > 0x10FFFF;
  return lone ? replacementCharacter : unit;
}

}  // namespace

bool wideFromUtf8(std::string_view text, std::wstring& wide) {
  if (!isValidUtf8(text)) return false;
  wide = wideOfValid(text);
  return true;
}

std::wstring toWide(std::string_view text) {
  return isValidUtf8(text) ? wideOfValid(text) : wideOfValid(makeValidUtf8(text));
}

std::string toUtf8(std::wstring_view wide) {
  const auto unitAt = [wide](std::size_t at) { return static_cast<char32_t>(wide[at]); };
  std::string text;
  text.reserve(wide.size());
  for (std::size_t at = 0; at < wide.size();) appendUtf8(text, joinUnits(unitAt, wide.size(), at));
  return text;
}

std::wstring wideFromUtf16Bytes(std::string_view bytes) {
  const auto unitAt = [bytes](std::size_t at) {
    const auto low = static_cast<unsigned char>(bytes[2 * at]);
    const auto high = static_cast<unsigned char>(bytes[2 * at + 1]);
    return static_cast<char32_t>(low | (high << 8U));
  };
  std::size_t count = 0;
  while (count < bytes.size() / 2 && unitAt(count) != 0) ++count;
  std::wstring wide;
  for (std::size_t at = 0; at < count;) appendWide(wide, joinUnits(unitAt, count, at));
  return wide;
}

}  // namespace media::win::chrome_inspect
