#pragma once

#include <fcntl.h>
#include <unistd.h>

// Sends what the host writes to standard output nowhere: the fuzzer itself reports on the error
// stream. A constant of this type does it before the first input.
struct SilentOutput {
  SilentOutput() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
};
