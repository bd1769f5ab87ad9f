#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>

#include "screening/injection_text.h"
#include "text/ascii.h"

// Judging 200,000 bytes of page text next to a search for each phrase in turn. Prints the
// microseconds of both; they take turns, and the least that each took counts: other work only adds
// to it.
namespace media::win::chrome_inspect {
namespace {

bool searchedForEach(std::string_view text) {
  const std::string folded = foldCase(text);
  bool found = false;
  for (const Phrase& phrase : injectionPhrases()) {
    found |= folded.find(phrase.text) != std::string::npos;
  }
  return found;
}

template <class Work>
void time(const Work& work, double& leastUs) {
  const auto begin = std::chrono::steady_clock::now();
  if (work()) std::fprintf(stderr, "found what is not there\n");
  const std::chrono::duration<double, std::micro> spent = std::chrono::steady_clock::now() - begin;
  leastUs = std::min(leastUs, spent.count());
}

void run() {
  std::string text;
  while (text.size() < 200'000) text += "The lamp is delivered in 7 days; see our terms. Buy 2.\n";
  double ours = std::numeric_limits<double>::max();
  double plain = ours;
  for (int i = 0; i < 41; ++i) {
    time([&] { return classifyInjectionText(text).detected; }, ours);
    time([&] { return searchedForEach(text); }, plain);
  }
  std::printf("%.1f %.1f\n", ours, plain);
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main() {
  media::win::chrome_inspect::run();
  return 0;
}
