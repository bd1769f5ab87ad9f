#include "text/utf8.h"

#include <algorithm>

namespace media::win::chrome_inspect {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

unsigned byteAt(std::string_view text, std::size_t at) {
  return static_cast<unsigned char>(text[at]);
}

bool isContinuation(unsigned byte) { return (byte & 0xC0U) == 0x80U; }

// What may follow a lead byte: how many continuation bytes, and the range of the first of them,
// which is narrower than 80..BF where it keeps out overlong forms, surrogates and above U+10FFFF.
struct Lead {
  std::size_t follow;
  unsigned firstMin;
  unsigned firstMax;
};

Lead leadOf(unsigned byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return {1, 0x80, 0xBF};
  if (byte == 0xE0) return {2, 0xA0, 0xBF};
  if (byte == 0xED) return {2, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {2, 0x80, 0xBF};
  if (byte == 0xF0) return {3, 0x90, 0xBF};
  if (byte == 0xF4) return {3, 0x80, 0x8F};
  if (byte >= 0xF1 && byte <= 0xF3) return {3, 0x80, 0xBF};
  return {0, 0, 0};
}

struct Step {
  std::size_t size;  // at least 1
  bool valid;
};

// The character, or the maximal ill-formed subpart, that begins at `at`.
Step stepAt(std::string_view text, std::size_t at) {
  if (byteAt(text, at) < 0x80) return {1, true};
  const Lead lead = leadOf(byteAt(text, at));
  if (lead.follow == 0) return {1, false};
  std::size_t size = 1;
  for (; size <= lead.follow; ++size) {
    if (at + size >= text.size()) return {size, false};
    const unsigned byte = byteAt(text, at + size);
    const bool fits =
        size == 1 ? byte >= lead.firstMin && byte <= lead.firstMax : isContinuation(byte);
    if (!fits) return {size, false};
  }
  return {size, true};
}

// Where the first ill-formed sequence begins; the size of `text` when there is none.
std::size_t firstInvalid(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const Step step = stepAt(text, at);
    if (!step.valid) return at;
    at += step.size;
  }
  return at;
}

}  // namespace

bool isValidUtf8(std::string_view text) { return firstInvalid(text) == text.size(); }

std::string makeValidUtf8(std::string_view text) {
  std::size_t at = firstInvalid(text);
  std::string valid(text.substr(0, at));
  while (at < text.size()) {
    const Step step = stepAt(text, at);
    valid += step.valid ? text.substr(at, step.size) : replacement;
    at += step.size;
  }
  return valid;
}

std::string_view cutUtf8(std::string_view text, std::size_t maxBytes) {
  if (text.size() <= maxBytes) return text;
  // A character has at most three continuation bytes; what has more is not UTF-8 and is cut as is.
  for (std::size_t back = 0; back <= std::min<std::size_t>(3, maxBytes); ++back) {
    if (!isContinuation(byteAt(text, maxBytes - back))) return text.substr(0, maxBytes - back);
  }
  return text.substr(0, maxBytes);
}

std::string foreignText(std::string_view text, std::size_t maxBytes) {
  // Cut first so that a huge text is not walked to its end; the result may have grown again.
  std::string valid = makeValidUtf8(cutUtf8(text, maxBytes));
  valid.resize(cutUtf8(valid, maxBytes).size());
  return valid;
}

}  // namespace media::win::chrome_inspect
