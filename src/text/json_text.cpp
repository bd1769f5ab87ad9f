#include "text/json_text.h"

#include <array>
#include <cstddef>

namespace media::win::chrome_inspect {
namespace {

// What follows the backslash of a character's escape; 'u' for those without a short one, 0 for
// those that are written as they are (RFC 8259, section 7).
constexpr std::array<char, 256> escapes = [] {
  std::array<char, 256> table{};
  for (std::size_t c = 0; c < 0x20; ++c) table[c] = 'u';
  table['\b'] = 'b';
  table['\f'] = 'f';
  table['\n'] = 'n';
  table['\r'] = 'r';
  table['\t'] = 't';
  table['"'] = '"';
  table['\\'] = '\\';
  return table;
}();

char escapeOf(char c) { return escapes[static_cast<unsigned char>(c)]; }

void separate(std::string& json, bool& first) {
  if (!first) json += ',';
  first = false;
}

}  // namespace

void appendQuoted(std::string& json, std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  json += '"';
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char escape = escapeOf(text[at]);
    if (escape == 0) continue;
    json += text.substr(begin, at - begin);
    json += {'\\', escape};
    const auto code = static_cast<unsigned char>(text[at]);
    if (escape == 'u') json += {'0', '0', digits[code >> 4U], digits[code & 0x0FU]};
    begin = at + 1;
  }
  json += text.substr(begin);
  json += '"';
}

std::string& JsonObjectText::member(std::string_view key) {
  separate(json_, first_);
  appendQuoted(json_, key);
  return json_ += ':';
}

std::string& JsonListText::element() {
  separate(json_, first_);
  return json_;
}

}  // namespace media::win::chrome_inspect
