#include "platform/process_control.h"

#include <unistd.h>

#include <csignal>

// Of GCC's coverage run-time, there only in a build that counts. It writes what was counted; an
// exit handler calls it otherwise, and none runs here. Unlike the documented __gcov_dump it is part
// of every such build, so that a weak reference finds it.
extern "C" void __gcov_exit() __attribute__((weak));  // NOLINT(bugprone-reserved-identifier)

namespace media::win::chrome_inspect {

void prepareProcess() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGCHLD, SIG_DFL);  // ignored by our starter, it would take the exit codes from us
}

void exitProcess(unsigned code) {
  if (__gcov_exit != nullptr) __gcov_exit();
  _exit(static_cast<int>(code));
}

}  // namespace media::win::chrome_inspect
