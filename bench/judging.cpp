#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>

#include "screening/injection_text.h"
#include "text/ascii.h"

// Judging the text of a page next to a search for each phrase in turn. Prints the microseconds of
// both; they take turns, and the least that each took counts: other work only adds to it.
namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t textBytes = 200'000;
constexpr int rounds = 41;
constexpr std::string_view words[] = {"the ",   "lamp ", "is ",  "delivered ", "within ", "two ",
                                      "days; ", "see ",  "our ", "terms. ",    "7 W.\n",  "Buy "};

// Ordinary text in which nothing is found; always the same.
std::string madeText() {
  std::string text;
  for (std::uint32_t state = 1; text.size() < textBytes;) {
    state = state * 1664525U + 1013904223U;
    text += words[(state >> 16U) % std::size(words)];
  }
  return text;
}

bool judged(std::string_view text) { return classifyInjectionText(text).detected; }

bool searchedForEach(std::string_view text) {
  const std::string folded = foldCase(text);
  bool found = false;
  for (const Phrase& phrase : injectionPhrases()) {
    found |= folded.find(phrase.text) != std::string::npos;
  }
  return found;
}

template <class Work>
void time(const Work& work, const std::string& text, double& leastUs) {
  const auto begin = std::chrono::steady_clock::now();
  if (work(text)) std::fprintf(stderr, "found what is not there\n");
  const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - begin;
  leastUs = std::min(leastUs, spent.count());
}

void run() {
  const std::string text = madeText();
  double ours = std::numeric_limits<double>::max();
  double plain = ours;
  for (int i = 0; i < rounds; ++i) {
    time(judged, text, ours);
    time(searchedForEach, text, plain);
  }
  std::printf("%.1f %.1f\n", ours, plain);
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main() { media::win::chrome_inspect::run(); }
