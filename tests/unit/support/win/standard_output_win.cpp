#include "support/standard_output.h"

#include <windows.h>

namespace media::win::chrome_inspect {

// The C run-time keeps its own handle, so the test framework's output is not captured.
StreamId replaceStandardOutput(StreamId stream) {
  const HANDLE old = GetStdHandle(STD_OUTPUT_HANDLE);
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(stream));
  return reinterpret_cast<StreamId>(old);
}

void restoreStandardOutput(StreamId old) {
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(old));
}

}  // namespace media::win::chrome_inspect
