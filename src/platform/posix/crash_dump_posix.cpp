#include "platform/crash_dump.h"

namespace media::win::chrome_inspect {

// NOLINTNEXTLINE(performance-unnecessary-value-param): the other side keeps it
void traceCrashes(CrashPlan /*plan*/) {}

}  // namespace media::win::chrome_inspect
