#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// The SHA-256 digest of `bytes` (FIPS 180-4), 32 bytes; empty when the system fails at it.
std::string sha256(std::string_view bytes);

// Fills `buffer` from the system's generator for secrets. False when it fails; the buffer is then
// not to be used. Windows side: BCryptGenRandom with the system-preferred generator.
bool randomBytes(unsigned char* buffer, std::size_t size);

}  // namespace media::win::chrome_inspect
