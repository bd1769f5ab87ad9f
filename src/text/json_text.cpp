#include "text/json_text.h"

#include <array>
#include <bit>
#include <cstddef>

#include "text/byte_block.h"

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

// The first character at `at` or behind it that needs an escape; the end when there is none.
std::size_t findEscape(std::string_view text, std::size_t at) {
  for (; at + ByteBlock::size <= text.size(); at += ByteBlock::size) {
    const ByteBlock block(text.data() + at);
    const std::uint64_t found = block.are('"') | block.are('\\') | block.areAtMost(0x1F);
    if (found != 0) return at + static_cast<std::size_t>(std::countr_zero(found));
  }
  while (at < text.size() && escapeOf(text[at]) == 0) ++at;
  return at;
}

void separate(std::string& json, bool& first) {
  if (!first) json += ',';
  first = false;
}

}  // namespace

void appendQuoted(std::string& json, std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  std::size_t at = findEscape(text, 0);
  if (at == text.size()) {  // as of nearly all: in two steps, since a page has thousands
    const std::size_t here = json.size();
    json.append(text.size() + 2, '"');
    text.copy(json.data() + here + 1, text.size());
    return;
  }
  json += '"';
  std::size_t begin = 0;
  for (; (at = findEscape(text, at)) < text.size(); begin = ++at) {
    json += text.substr(begin, at - begin);
    const char escape = escapeOf(text[at]);
    json += {'\\', escape};
    const auto code = static_cast<unsigned char>(text[at]);
    if (escape == 'u') json += {'0', '0', digits[code >> 4U], digits[code & 0x0FU]};
  }
  json += text.substr(begin);
  json += '"';
}

std::string& JsonObjectText::member(std::string_view key) {
  separate(json_, first_);
  appendQuoted(json_, key);
  return json_ += ':';
}

void JsonObjectText::members(std::string_view object) {
  separate(json_, first_);
  json_ += object.substr(1, object.size() - 2);
}

std::string& JsonListText::element() {
  separate(json_, first_);
  return json_;
}

}  // namespace media::win::chrome_inspect
