#pragma once

#include <cstddef>

namespace media::win::chrome_inspect {

// Fills `buffer` from the system's generator for secrets. False when it fails; the buffer is then
// not to be used. Windows side: BCryptGenRandom with the system-preferred generator.
bool randomBytes(unsigned char* buffer, std::size_t size);

}  // namespace media::win::chrome_inspect
