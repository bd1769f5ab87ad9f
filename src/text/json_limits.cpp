#include "text/json_limits.h"

#include <algorithm>

namespace media::win::chrome_inspect {
namespace {

constexpr std::string_view tooDeep = "json nested too deeply";
constexpr std::string_view tooMany = "json has too many values";
constexpr std::string_view tooLarge = "json takes too much memory";

// What the parts of a tree take on a 64-bit system, the allocator's own share included. An element
// is counted twice, because a list grows by doubling; a member's value lies in its node.
constexpr std::size_t elementBytes = 32;
constexpr std::size_t memberBytes = 96;
constexpr std::size_t objectBytes = 64;
constexpr std::size_t arrayBytes = 32;
constexpr std::size_t stringBytes = 48;
constexpr std::size_t shortText = 15;  // longer ones are allocated
constexpr std::size_t textBytes = 17;

// A shorter text can break neither limit: a value takes two bytes of it at least, and no byte of it
// more than this much memory.
constexpr std::size_t mostTreeBytesPerByte = 32;
constexpr std::size_t smallText =
    std::min(2 * maxJsonValues, maxJsonTreeBytes / mostTreeBytesPerByte);

bool opensLevel(char c) { return c == '[' || c == '{'; }
bool closesLevel(char c) { return c == ']' || c == '}'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool endsScalar(char c) { return c == ',' || closesLevel(c) || isBlank(c); }

// Behind the quote that ends the string whose first character is at `at`; the end of the text when
// there is none. A quote behind an odd number of backslashes is one of the string's characters.
std::size_t behindString(std::string_view text, std::size_t at) {
  const std::size_t begin = at;
  for (at = text.find('"', at); at != std::string_view::npos; at = text.find('"', at + 1)) {
    std::size_t backslashes = 0;
    while (at - backslashes > begin && text[at - backslashes - 1] == '\\') ++backslashes;
    if (backslashes % 2 == 0) return at + 1;
  }
  return text.size();
}

bool isKey(std::string_view text, std::size_t behind) {
  while (behind < text.size() && isBlank(text[behind])) ++behind;
  return behind < text.size() && text[behind] == ':';
}

class Measure {
 public:
  explicit Measure(std::string_view text) : text_(text) {}

  std::string_view exceeded() {
    while (at_ < text_.size()) {
      step(text_[at_]);
      if (depth_ > maxJsonDepth) return tooDeep;
      if (values_ > maxJsonValues) return tooMany;
      if (bytes_ > maxJsonTreeBytes) return tooLarge;
    }
    return {};
  }

 private:
  void step(char c) {
    if (c == '"') {
      takeString();
    } else if (opensLevel(c)) {
      ++depth_;
      ++at_;
      addValue(c == '{' ? objectBytes : arrayBytes);
    } else if (closesLevel(c)) {
      if (depth_ > 0) --depth_;
      ++at_;
    } else if (c == ':') {
      isMember_ = true;
      ++at_;
    } else if (c == ',' || isBlank(c)) {
      ++at_;
    } else {
      takeScalar();
    }
  }

  void addValue(std::size_t bytes) {
    ++values_;
    bytes_ += bytes + (isMember_ ? 0 : elementBytes);
    isMember_ = false;
  }

  void takeString() {
    const std::size_t behind = behindString(text_, at_ + 1);
    const std::size_t length = behind - at_ - 1;
    const std::size_t contents = length > shortText ? length + textBytes : 0;
    if (isKey(text_, behind)) {
      bytes_ += memberBytes + contents;
    } else {
      addValue(stringBytes + contents);
    }
    at_ = behind;
  }

  void takeScalar() {
    addValue(0);
    while (at_ < text_.size() && !endsScalar(text_[at_])) ++at_;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
  std::size_t values_ = 0;
  std::size_t bytes_ = 0;
  bool isMember_ = false;  // a colon came before the next value
};

}  // namespace

std::string_view jsonLimitExceeded(std::string_view text) {
  // Few brackets cannot nest deeply: this is nearly every message and needs no state.
  if (text.size() < smallText) {
    const auto opening = std::count_if(text.begin(), text.end(), opensLevel);
    if (static_cast<std::size_t>(opening) <= maxJsonDepth) return {};
  }
  return Measure(text).exceeded();
}

}  // namespace media::win::chrome_inspect
