#include "platform/crash_dump.h"

namespace media::win::chrome_inspect {

void traceCrashes(CrashPlan /*plan*/) {}

}  // namespace media::win::chrome_inspect
