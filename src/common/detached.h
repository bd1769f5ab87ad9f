#pragma once

#include <functional>
#include <new>
#include <string>

namespace media::win::chrome_inspect {

// Starts a thread that nobody joins and that runs `body`. What `body` throws ends there: it is
// reported under `name` and the process lives on. False, and `body` not run, when no thread can be
// started, or there is no memory for it. `body` owns copies of everything it uses: it may outlive
// its caller and even main.
[[nodiscard]] bool runDetached(const char* name, std::function<void()> body);

// The same for what is still to be made a function, which takes memory.
template <class Body>
[[nodiscard]] bool runDetached(const char* name, Body body) {
  try {
    return runDetached(name, std::function<void()>(std::move(body)));
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// Runs `body` on the calling thread. What it throws ends there in the same way.
void runContained(const char* name, const std::function<void()>& body) noexcept;

// Who hears of exceptions that ended so. Set once, before any thread starts; may be called from any
// thread and must not throw.
void setDetachedReporter(void (*report)(const std::string& text));

}  // namespace media::win::chrome_inspect
