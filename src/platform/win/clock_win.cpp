#include "platform/clock.h"

#include <windows.h>

namespace media::win::chrome_inspect {

std::uint64_t tickCountMs() { return GetTickCount64(); }

void sleepMs(std::uint32_t ms) { Sleep(ms); }

}  // namespace media::win::chrome_inspect
