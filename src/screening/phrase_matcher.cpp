#include "screening/phrase_matcher.h"

#include <algorithm>
#include <deque>

#include "text/ascii.h"

namespace media::win::chrome_inspect {
namespace {

// While the table is built a move holds a state's number, or this. The search table holds where the
// state's row begins, and a mark when the state completes a phrase.
constexpr std::uint32_t noState = 0xFFFFFFFF;
constexpr std::uint32_t completesPhrase = 0x80000000;

}  // namespace

PhraseMatcher::PhraseMatcher(std::span<const Phrase> phrases) {
  for (const Phrase& phrase : phrases) {
    longest_ = std::max(longest_, phrase.text.size());
    for (const char c : phrase.text) {
      std::uint8_t& known = classes_[static_cast<unsigned char>(c)];
      if (known == 0) known = static_cast<std::uint8_t>(classCount_++);
    }
  }
  for (char c = 'A'; c <= 'Z'; ++c) {
    classes_[static_cast<unsigned char>(c)] = classes_[static_cast<unsigned char>(foldCase(c))];
  }
  moves_.assign(classCount_, noState);
  groups_.assign(1, 0);
  for (const Phrase& phrase : phrases) addPhrase(phrase);
  linkStates();
}

void PhraseMatcher::addPhrase(const Phrase& phrase) {
  std::size_t state = 0;
  for (const char c : phrase.text) {
    const std::size_t move = state * classCount_ + classOf(c);
    if (moves_[move] == noState) {
      moves_[move] = static_cast<std::uint32_t>(groups_.size());
      groups_.push_back(0);
      moves_.resize(moves_.size() + classCount_, noState);
    }
    state = moves_[move];
  }
  groups_[state] |= phrase.groups;
}

// Completes the moves of each state, in order of depth, by those of its longest proper suffix that
// is a state too, and adds that suffix's groups to it.
void PhraseMatcher::linkStates() {
  std::vector<std::uint32_t> suffix(groups_.size(), 0);
  std::deque<std::uint32_t> order = {0};
  while (!order.empty()) {
    const std::uint32_t state = order.front();
    order.pop_front();
    groups_[state] |= groups_[suffix[state]];
    for (std::size_t c = 0; c < classCount_; ++c) {
      std::uint32_t& move = moves_[state * classCount_ + c];
      const std::uint32_t fallback = state == 0 ? 0 : moves_[suffix[state] * classCount_ + c];
      if (move == noState) {
        move = fallback;
      } else {
        suffix[move] = fallback;
        order.push_back(move);
      }
    }
  }
  for (std::uint32_t& move : moves_) {
    const bool completes = groups_[move] != 0;
    move = move * static_cast<std::uint32_t>(classCount_) | (completes ? completesPhrase : 0);
  }
}

void PhraseMatcher::step(Search& search, char c) const {
  const std::uint32_t move = moves_[search.row + classOf(c)];
  search.row = move & ~completesPhrase;
  if ((move & completesPhrase) != 0) search.found |= groups_[search.row / classCount_];
}

// A step cannot begin before the one before it has read the table, and waits for that most of the
// time. So four searches go side by side, each through its part of the text and on to the end of a
// phrase that begins there.
std::uint32_t PhraseMatcher::groupsIn(std::string_view text) const {
  constexpr std::size_t searchCount = 4;
  std::array<Search, searchCount> searches;
  const std::size_t part = text.size() / searchCount;
  for (std::size_t at = 0; at < part; ++at) {
    for (std::size_t i = 0; i < searchCount; ++i) step(searches[i], text[i * part + at]);
  }
  std::uint32_t found = 0;
  for (std::size_t i = 0; i < searchCount; ++i) {
    const std::size_t end = (i + 1) * part;
    const std::size_t rest = i + 1 < searchCount ? longest_ - 1 : text.size() - end;
    for (const char c : text.substr(end, rest)) step(searches[i], c);
    found |= searches[i].found;
  }
  return found;
}

}  // namespace media::win::chrome_inspect
