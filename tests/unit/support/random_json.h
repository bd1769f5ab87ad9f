#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace media::win::chrome_inspect {

// Makes up JSON texts that say a value in every way that there is: with blanks, names that stand
// twice, escapes, halves of emojis, and numbers of each kind. A seed makes the same texts each
// time, though not with each compiler.
class RandomJson {
 public:
  explicit RandomJson(std::uint32_t seed) : random_(seed) {}

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_()) % limit; }

  // Lists and objects are nested at most this deep.
  std::string value(int depth = 3) {
    const std::uint32_t kind = below(depth > 0 ? 6 : 4);
    if (kind == 0) return pick({"null", "true", "false", "{}", "[]"});
    if (kind == 1) {
      return pick({"0", "-0", "1", "-17", "1.0", "0.1", "-2.5e-3", "1e5", "1E+300", "5e-324",
                   "9223372036854775807", "-9223372036854775808", "18446744073709551615",
                   "18446744073709551616", "123456789012345678901234567890", "1e-400"});
    }
    if (kind < 4) return text();
    std::string parts = kind == 4 ? "[" : "{";
    for (std::uint32_t i = 0, count = below(5); i < count; ++i) {
      if (i > 0) parts += blank() + "," + blank();
      if (kind == 5) parts += pick({R"("a")", R"("b")", R"("\u0061")", text()}) + blank() + ":";
      parts += blank() + value(depth - 1);
    }
    return parts + (kind == 4 ? "]" : "}");
  }

 private:
  std::string pick(std::initializer_list<std::string> choices) {
    return choices.begin()[below(static_cast<std::uint32_t>(choices.size()))];
  }
  std::string blank() { return below(4) == 0 ? pick({" ", "\n", "\t \r"}) : ""; }
  std::string text() {
    std::string characters;
    for (std::uint32_t i = 0, count = below(8); i < count; ++i) {
      characters += pick({"a", "a longer piece of text, ", "\xC3\xA9", "\xF0\x9F\x98\x80", R"(\n)",
                          R"(\")", R"(\\)", R"(\/)", R"(\u0000)", R"(\u001f)", R"(\u00e9)",
                          R"(\ud83d\ude00)", R"(\ud83d)", R"(\ude00)", R"(\\ud83d)", "\x7F"});
    }
    return '"' + characters + '"';
  }

  std::mt19937 random_;
};

}  // namespace media::win::chrome_inspect
