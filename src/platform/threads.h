#pragma once

#include <functional>

namespace media::win::chrome_inspect {

// Starts a thread that nobody joins and that runs `body` on a copy of its own. `body` must not let
// an exception out (common/detached.h sees to that). False, and `body` not run, when the system
// starts no thread. Windows side: _beginthreadex, so that the C++ run-time is set up for it.
[[nodiscard]] bool startThread(std::function<void()> body);

}  // namespace media::win::chrome_inspect
