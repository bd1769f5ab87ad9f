#include "support/open_handles.h"

#include <windows.h>

namespace media::win::chrome_inspect {

const std::size_t handlesOfTheSystem = 20;

// Wine 8 always says 0, so there only the twin's descriptors are counted.
std::size_t openHandleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

}  // namespace media::win::chrome_inspect
