#pragma once

#include <cstddef>
#include <memory>

// Memory for texts and their values. A few large blocks that were given back are kept for the next
// text: a block that comes from the system anew costs as much as reading the text into it, since
// each of its pages is cleared and mapped when it is first touched.
namespace media::win::chrome_inspect {

// So many are kept at most, of a size in between; none where a sanitizer watches each block.
extern const std::size_t maxKeptBlocks;
inline constexpr std::size_t minKeptBlock = 65536;
inline constexpr std::size_t maxKeptBlock = 4 * 1024 * 1024;

// At least `size` bytes, aligned for any type, with anything in them; null when there is no memory.
// Threads: any.
[[nodiscard]] char* takeBlock(std::size_t size);
void giveBlock(char* block);  // null is none

struct GiveBlock {
  void operator()(char* block) const { giveBlock(block); }
};
using OwnedBlock = std::unique_ptr<char, GiveBlock>;

}  // namespace media::win::chrome_inspect
