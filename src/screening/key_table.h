#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>

#include "text/json_view.h"

namespace media::win::chrome_inspect {

// Finds which of a fixed list of names a name is, by its length first: most names of a page's
// members are none of them. Built at compile time.
template <std::size_t Count>
class KeyTable {
 public:
  static constexpr std::size_t none = Count;
  static constexpr std::size_t longest = 23;

  constexpr explicit KeyTable(const std::array<std::string_view, Count>& keys) {
    for (std::size_t i = 0; i < Count; ++i) order_[i] = {keys[i], i};
    std::ranges::sort(order_, {},
                      [](const Entry& entry) { return std::pair(entry.key.size(), entry.key); });
    for (std::size_t size = 0; size < first_.size(); ++size) {
      while (first_[size] < Count && order_[first_[size]].key.size() < size) ++first_[size];
    }
  }

  // The place of `key` in the list; `none` when it is not in it.
  constexpr std::size_t find(std::string_view key) const {
    if (key.size() > longest) return none;
    for (std::size_t i = first_[key.size()]; i < first_[key.size() + 1]; ++i) {
      if (order_[i].key == key) return order_[i].place;
    }
    return none;
  }

  // The members of `object` by their places, of several of a name the last; none for those that are
  // missing.
  std::array<JsonView, Count> membersOf(JsonView object) const {
    std::array<JsonView, Count> members;
    for (const JsonMember member : object.members()) {
      if (const std::size_t place = find(member.key); place != none) members[place] = member.value;
    }
    return members;
  }

 private:
  struct Entry {
    std::string_view key;
    std::size_t place = 0;
  };
  std::array<Entry, Count> order_{};
  std::array<std::size_t, longest + 2> first_{};  // of the entries of at least this length
};

}  // namespace media::win::chrome_inspect
