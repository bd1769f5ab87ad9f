#pragma once

#include <cstddef>
#include <string_view>

// What a JSON text may ask of this process. Measured on the text, before anything is built of it.
namespace media::win::chrome_inspect {

// Arrays and objects may be nested this deep, inclusive. Copying, comparing and serialising a value
// recurse, so depth is stack; Chrome itself refuses depths past 200.
inline constexpr std::size_t maxJsonDepth = 1000;

// One text may hold this many values (keys are none), inclusive, and take this much memory as a
// tree of the JSON library, which needs up to fifty times the size of a text of small values.
inline constexpr std::size_t maxJsonValues = 2'000'000;
inline constexpr std::size_t maxJsonTreeBytes = 256 * 1024 * 1024;

// Why `text` is refused: "json nested too deeply", "json has too many values" or "json takes too
// much memory"; empty when it keeps within the limits. Exact for depth and values of valid JSON;
// the memory is estimated, by the sizes of the library's nodes. Linear; allocates nothing.
std::string_view jsonLimitExceeded(std::string_view text);

}  // namespace media::win::chrome_inspect
