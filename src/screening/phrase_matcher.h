#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace media::win::chrome_inspect {

// A phrase, in lower case, and the groups it belongs to, as bits.
struct Phrase {
  std::string_view text;
  std::uint32_t groups;
};

// Finds which groups of phrases occur in a text, upper and lower case ASCII letters alike, in one
// pass over it however many phrases there are (Aho and Corasick, "Efficient string matching",
// 1975). Building it costs some thousand steps; searching allocates nothing. Immutable, so any
// number of threads may search at once.
class PhraseMatcher {
 public:
  explicit PhraseMatcher(std::span<const Phrase> phrases);

  // The groups of all phrases that occur in `text`. Linear in its size.
  std::uint32_t groupsIn(std::string_view text) const;

 private:
  struct Search {
    std::size_t row = 0;  // of the state it is in
    std::uint32_t found = 0;
  };
  void step(Search& search, char c) const;
  void addPhrase(const Phrase& phrase);
  void linkStates();
  std::size_t classOf(char c) const { return classes_[static_cast<unsigned char>(c)]; }

  // Bytes that no phrase holds are all one class, 0; so the table of moves stays small.
  std::array<std::uint8_t, 256> classes_{};
  std::size_t classCount_ = 1;
  std::size_t longest_ = 1;            // bytes of a phrase
  std::vector<std::uint32_t> moves_;   // by state times `classCount_` plus class
  std::vector<std::uint32_t> groups_;  // by state
};

}  // namespace media::win::chrome_inspect
