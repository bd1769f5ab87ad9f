#pragma once

#include <atomic>

namespace media::win::chrome_inspect {

// True from the start of the process until standard input has ended, then false for good: whoever
// serves others on behalf of the browser begins nothing new.
inline std::atomic<bool> hostRunning = true;

}  // namespace media::win::chrome_inspect
