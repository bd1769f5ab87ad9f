#include "support/standard_output.h"

#include <unistd.h>

#include <cstdio>

namespace media::win::chrome_inspect {

StreamId replaceStandardOutput(StreamId stream) {
  std::fflush(stdout);  // what the test framework still holds back is not ours
  const int old = dup(STDOUT_FILENO);
  dup2(static_cast<int>(stream), STDOUT_FILENO);
  return old;
}

void restoreStandardOutput(StreamId old) {
  std::fflush(stdout);
  dup2(static_cast<int>(old), STDOUT_FILENO);
  close(static_cast<int>(old));
}

}  // namespace media::win::chrome_inspect
