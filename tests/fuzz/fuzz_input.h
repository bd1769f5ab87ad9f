#pragma once

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace media::win::chrome_inspect {

// What a target does with one input; fuzz_main.cpp calls it.
void fuzz(std::string_view input);

inline void require(bool holds) {
  if (!holds) std::abort();
}

// An input that comes in pieces: its first bytes are their sizes, over and over, less one.
class Pieces {
 public:
  explicit Pieces(std::string_view input)
      : sizes_(input.substr(0, cutCount)), rest_(input.substr(sizes_.size())) {}

  // Everything that is still to come.
  std::string_view rest() const { return rest_; }

  // The next piece, of at most `capacity` bytes; empty at the end.
  std::string_view next(std::size_t capacity = std::string_view::npos) {
    if (rest_.empty()) return {};
    const auto size = static_cast<unsigned char>(sizes_[piece_++ % cutCount]) + std::size_t{1};
    const std::string_view piece = rest_.substr(0, size < capacity ? size : capacity);
    rest_.remove_prefix(piece.size());
    return piece;
  }

 private:
  static constexpr std::size_t cutCount = 8;

  std::string_view sizes_;
  std::string_view rest_;
  std::size_t piece_ = 0;
};

}  // namespace media::win::chrome_inspect
