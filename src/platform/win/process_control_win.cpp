#include "platform/process_control.h"

#include <windows.h>

namespace media::win::chrome_inspect {

void prepareProcess() {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

void exitProcess(unsigned code) {
  for (;;) TerminateProcess(GetCurrentProcess(), code);
}

}  // namespace media::win::chrome_inspect
