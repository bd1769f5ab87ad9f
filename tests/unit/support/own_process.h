#pragma once

#include <cstdint>

namespace media::win::chrome_inspect {

std::uint32_t ownProcessId();

}  // namespace media::win::chrome_inspect
