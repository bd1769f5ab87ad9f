#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "screening/injection_text.h"

namespace media::win::chrome_inspect {

// The rules of the screening written out once more, with nothing but searches for one phrase after
// the other, as what the product's classifier is compared with.
InjectionVerdict classifyNaively(std::string_view text);

using Phrases = std::vector<std::string_view>;
// The lists as the rules name them.
extern const Phrases overridePhrases, credentialPhrases, exfiltrationPhrases, fetchPhrases,
    scriptPhrases, runPhrases, pipePhrases, pipeFetchPhrases, policyPhrases, policyTargetPhrases,
    shellPhrases;

// Every list.
std::vector<const Phrases*> allPhraseLists();

// A text of up to `maxPieces` phrases and ordinary words, in any letter case; `next` returns random
// numbers.
template <class Next>
std::string madeOfPhrases(Next& next, std::size_t maxPieces) {
  static constexpr std::string_view words[] = {" ",      "the ", "page", "\n",
                                               "Hello ", "|",    "x",    "\xC3\xA9"};
  const std::vector<const Phrases*> lists = allPhraseLists();
  std::string text;
  for (std::size_t piece = next() % (maxPieces + 1); piece > 0; --piece) {
    const Phrases& list = *lists[next() % lists.size()];
    std::string_view chosen =
        next() % 2 == 0 ? words[next() % std::size(words)] : list[next() % list.size()];
    if (next() % 8 == 0) chosen.remove_suffix(1);  // almost a phrase
    for (const char c : chosen) {
      const bool raise = c >= 'a' && c <= 'z' && next() % 4 == 0;
      text += raise ? static_cast<char>(c - 'a' + 'A') : c;
    }
  }
  return text;
}

}  // namespace media::win::chrome_inspect
