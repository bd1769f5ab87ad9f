#include "platform/threads.h"

#include <process.h>

#include <memory>
#include <utility>

#include "platform/win/handles_win.h"

namespace media::win::chrome_inspect {
namespace {

constexpr unsigned stackBytes = 2 * 1024 * 1024;

unsigned __stdcall runBody(void* argument) {
  const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return 0;
}

}  // namespace

bool startThread(std::function<void()> body) {
  auto owned = std::make_unique<std::function<void()>>(std::move(body));
  const std::uintptr_t thread = _beginthreadex(nullptr, stackBytes, runBody, owned.get(),
                                               STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
  if (thread == 0) return false;
  const OwnedHandle unused(handleOf(static_cast<std::intptr_t>(thread)));  // nobody joins
  (void)owned.release();                                                   // the thread's own now
  return true;
}

}  // namespace media::win::chrome_inspect
