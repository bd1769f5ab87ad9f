#pragma once

#include <functional>
#include <string>

namespace media::win::chrome_inspect {

// Starts a thread that nobody joins and that runs `body`. What `body` throws ends there: it is
// reported under `name` and the process lives on. False, and `body` not run, when no thread can be
// started. `body` owns copies of everything it uses: it may outlive its caller and even main.
[[nodiscard]] bool runDetached(const char* name, std::function<void()> body);

// Who hears of exceptions that reached the top of a detached thread. Set once, before any thread
// starts; may be called from any thread and must not throw.
void setDetachedReporter(void (*report)(const std::string& text));

}  // namespace media::win::chrome_inspect
