#include "platform/posix/wide_text_posix.h"

#include <cstddef>

namespace media::win::chrome_inspect {
namespace {

constexpr char32_t replacement = 0xFFFD;

bool isScalar(char32_t code) { return code < 0xD800 || (code > 0xDFFF && code <= 0x10FFFF); }

void appendUtf8(char32_t code, std::string& text) {
  const auto add = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  const auto addRest = [&add](char32_t bits) { add(0x80U | (bits & 0x3FU)); };
  if (code < 0x80) return add(code);
  if (code < 0x800) {
    add(0xC0U | (code >> 6U));
  } else if (code < 0x10000) {
    add(0xE0U | (code >> 12U));
    addRest(code >> 6U);
  } else {
    add(0xF0U | (code >> 18U));
    addRest(code >> 12U);
    addRest(code >> 6U);
  }
  addRest(code);
}

struct Lead {
  std::size_t rest;   // bytes that follow
  char32_t bits;      // of the code, from the first byte
  char32_t smallest;  // a smaller code must not be written this long
};

// The first byte of a sequence; what cannot be one has a `smallest` that no code reaches.
Lead leadOf(unsigned char byte) {
  if (byte < 0x80) return {0, byte, 0};
  if (byte >= 0xC0 && byte < 0xE0) return {1, byte & 0x1FU, 0x80};
  if (byte >= 0xE0 && byte < 0xF0) return {2, byte & 0x0FU, 0x800};
  if (byte >= 0xF0 && byte < 0xF8) return {3, byte & 0x07U, 0x10000};
  return {0, replacement, 0x110000};
}

// Takes one code from the front of `text`, which is not empty.
char32_t takeCode(std::string_view& text) {
  const Lead lead = leadOf(static_cast<unsigned char>(text.front()));
  char32_t code = lead.bits;
  for (std::size_t i = 1; i <= lead.rest; ++i) {
    const unsigned byte = i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    if ((byte & 0xC0U) != 0x80U) {
      text.remove_prefix(i);
      return replacement;
    }
    code = (code << 6U) | (byte & 0x3FU);
  }
  text.remove_prefix(lead.rest + 1);
  return code >= lead.smallest && isScalar(code) ? code : replacement;
}

}  // namespace

std::string narrowText(std::wstring_view wide) {
  std::string text;
  text.reserve(wide.size());
  for (const wchar_t character : wide) {
    const auto code = static_cast<char32_t>(character);
    appendUtf8(isScalar(code) ? code : replacement, text);
  }
  return text;
}

std::wstring wideText(std::string_view narrow) {
  std::wstring text;
  text.reserve(narrow.size());
  while (!narrow.empty()) text.push_back(static_cast<wchar_t>(takeCode(narrow)));
  return text;
}

std::string narrowPath(const std::wstring& wide) {
  return wide.find(L'\0') == std::wstring::npos ? narrowText(wide) : std::string();
}

}  // namespace media::win::chrome_inspect
