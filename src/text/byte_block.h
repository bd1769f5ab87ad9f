#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace media::win::chrome_inspect {

// Sixteen bytes that are looked at in one step (SSE2, which every x64 processor has). What is found
// is one bit a byte, the first byte's the lowest.
class ByteBlock {
 public:
  static constexpr std::size_t size = 16;

  explicit ByteBlock(const char* bytes)
      : bytes_(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes))) {}

  std::uint64_t are(char c) const { return bits(_mm_cmpeq_epi8(bytes_, _mm_set1_epi8(c))); }
  // Which of them are `c` once this bit of theirs is set.
  std::uint64_t areWithBit(char c, char bit) const {
    const __m128i set = _mm_or_si128(bytes_, _mm_set1_epi8(bit));
    return bits(_mm_cmpeq_epi8(set, _mm_set1_epi8(c)));
  }
  // Which of them, as unsigned numbers, are at most `c`.
  std::uint64_t areAtMost(char c) const {
    return bits(_mm_cmpeq_epi8(_mm_min_epu8(bytes_, _mm_set1_epi8(c)), bytes_));
  }

 private:
  static std::uint64_t bits(__m128i found) {
    return static_cast<std::uint32_t>(_mm_movemask_epi8(found));
  }
  __m128i bytes_;
};

}  // namespace media::win::chrome_inspect
