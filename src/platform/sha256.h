#pragma once

#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// The SHA-256 digest of `bytes` (FIPS 180-4), 32 bytes; empty when the system fails at it.
std::string sha256(std::string_view bytes);

}  // namespace media::win::chrome_inspect
