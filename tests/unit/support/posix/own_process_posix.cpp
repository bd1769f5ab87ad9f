#include "support/own_process.h"

#include <unistd.h>

namespace media::win::chrome_inspect {

std::uint32_t ownProcessId() { return static_cast<std::uint32_t>(getpid()); }

}  // namespace media::win::chrome_inspect
