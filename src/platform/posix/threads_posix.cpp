#include "platform/threads.h"

#include <pthread.h>

#include <memory>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

// More than the 2 MiB of the Windows side: sanitizers make every frame several times larger.
constexpr std::size_t stackBytes = 8 * 1024 * 1024;

void* runBody(void* argument) {
  const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return nullptr;
}

bool startDetached(void* argument) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_t thread = {};
  const bool started = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) == 0 &&
                       pthread_attr_setstacksize(&attributes, stackBytes) == 0 &&
                       pthread_create(&thread, &attributes, runBody, argument) == 0;
  pthread_attr_destroy(&attributes);
  return started;
}

}  // namespace

bool startThread(std::function<void()> body) {
  auto owned = std::make_unique<std::function<void()>>(std::move(body));
  if (!startDetached(owned.get())) return false;
  (void)owned.release();  // the thread's own now
  return true;
}

}  // namespace media::win::chrome_inspect
