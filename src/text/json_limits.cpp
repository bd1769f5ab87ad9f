#include "text/json_limits.h"

#include <algorithm>
#include <bit>
#include <cstdint>

#include "text/byte_block.h"

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

bool opensLevel(char c) { return c == '[' || c == '{'; }
bool closesLevel(char c) { return c == ']' || c == '}'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool endsScalar(char c) { return c == ',' || c == '"' || closesLevel(c) || isBlank(c); }

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

// The bracket that opens a level, or closes one, of either kind: they differ in this bit.
constexpr char bracketBit = 0x20;
static_assert(('[' | bracketBit) == '{' && (']' | bracketBit) == '}');

// What a text holds at most, found 64 bytes at a time: enough for nearly every text, and a tenth of
// the time that measuring takes.
class Estimate {
 public:
  // Whether `text` keeps within the limits beyond doubt.
  bool keepsWithin(std::string_view text) {
    const std::size_t whole = text.size() - text.size() % blockSize;
    for (std::size_t at = 0; at < whole; at += blockSize) {
      if (!take(text.data() + at)) return false;
    }
    char rest[blockSize] = {};
    text.copy(rest, blockSize, whole);
    return take(rest) && values() <= maxJsonValues &&
           values() * mostValueBytes + text.size() <= maxJsonTreeBytes;
  }

 private:
  static constexpr std::size_t blockSize = 64;
  // A value or a key, but for the characters of a string.
  static constexpr std::size_t mostValueBytes =
      std::max({objectBytes + elementBytes, stringBytes + elementBytes, memberBytes}) + textBytes;

  // A call of the compiler's library: not every x64 processor has an instruction for it.
  static std::size_t count(std::uint64_t bits) {
    return static_cast<std::size_t>(std::popcount(bits));
  }

  struct Marks {
    std::uint64_t quotes = 0;
    std::uint64_t backslashes = 0;
    std::uint64_t opening = 0;
    std::uint64_t closing = 0;
    std::uint64_t separators = 0;
  };

  static Marks marksOf(const char* bytes) {
    Marks marks;
    for (std::size_t at = 0; at < blockSize; at += ByteBlock::size) {
      const ByteBlock block(bytes + at);
      marks.quotes |= block.are('"') << at;
      marks.backslashes |= block.are('\\') << at;
      marks.opening |= block.areWithBit('{', bracketBit) << at;
      marks.closing |= block.areWithBit('}', bracketBit) << at;
      marks.separators |= (block.are(',') | block.are(':')) << at;
    }
    return marks;
  }

  // Every value and key but the first stands behind an opening bracket or a separator.
  std::size_t values() const { return begun_ + 1; }

  // False when the block is not that of a valid text, or might be too deep.
  bool take(const char* bytes) {
    const Marks marks = marksOf(bytes);
    const std::uint64_t strings = stringsOf(marks);
    if ((marks.backslashes & ~strings) != 0) return false;
    const std::uint64_t opening = marks.opening & ~strings;
    const std::uint64_t closing = marks.closing & ~strings;
    begun_ += count(opening | (marks.separators & ~strings));
    return (opening | closing) == 0 || takeLevels(count(opening), count(closing));
  }

  // False when the text might be too deep.
  bool takeLevels(std::size_t opened, std::size_t closed) {
    if (depth_ + opened > maxJsonDepth) return false;
    depth_ =
        std::max(depth_ + opened - std::min(closed, depth_ + opened), closed > depth_ ? opened : 0);
    return true;
  }

  // The bytes that belong to strings, the quotes in front of them included.
  std::uint64_t stringsOf(const Marks& marks) {
    std::uint64_t inside = marks.quotes & ~escapedBy(marks.backslashes);
    for (unsigned distance = 1; distance < blockSize; distance *= 2) inside ^= inside << distance;
    inside ^= inString_;
    inString_ = (inside >> (blockSize - 1)) != 0 ? ~std::uint64_t{0} : 0;
    return inside;
  }

  // The bytes behind backslashes that are not themselves behind one.
  std::uint64_t escapedBy(std::uint64_t backslashes) {
    constexpr std::uint64_t last = std::uint64_t{1} << (blockSize - 1);
    std::uint64_t escaped = firstIsEscaped_ ? 1 : 0;
    firstIsEscaped_ = false;
    backslashes &= ~escaped;
    while (backslashes != 0) {
      const std::uint64_t next = backslashes & (~backslashes + 1);
      firstIsEscaped_ = next == last;
      escaped |= next << 1U;
      backslashes &= ~(next | next << 1U);
    }
    return escaped;
  }

  std::size_t depth_ = 0;  // at most one block's brackets more than it is
  std::size_t begun_ = 0;
  std::uint64_t inString_ = 0;  // all bits when the last block ended in a string
  bool firstIsEscaped_ = false;
};

// A shorter text can break no limit: as large as most messages.
constexpr std::size_t harmlessSize = maxJsonDepth;

}  // namespace

std::string_view jsonLimitExceeded(std::string_view text) {
  if (text.size() <= harmlessSize || Estimate().keepsWithin(text)) return {};
  return Measure(text).exceeded();
}

}  // namespace media::win::chrome_inspect
