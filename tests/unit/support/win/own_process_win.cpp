#include "support/own_process.h"

#include <windows.h>

namespace media::win::chrome_inspect {

std::uint32_t ownProcessId() { return GetCurrentProcessId(); }

}  // namespace media::win::chrome_inspect
