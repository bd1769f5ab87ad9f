#pragma once

#include <cstddef>

namespace media::win::chrome_inspect {

// How many handles (descriptors) this process has open.
std::size_t openHandleCount();

// How many more may be open later without a leak of ours: what the system keeps for itself, such as
// its threads.
extern const std::size_t handlesOfTheSystem;

}  // namespace media::win::chrome_inspect
