#include "platform/pipe_probe.h"

#include <windows.h>

namespace media::win::chrome_inspect {

PipeState probePipe(const std::string& name) {
  constexpr DWORD shortestWaitMs = 1;  // 0 would mean the time-out that the server chose
  if (WaitNamedPipeA(name.c_str(), shortestWaitMs)) return PipeState::listening;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND) return PipeState::absent;
  return error == ERROR_SEM_TIMEOUT ? PipeState::busy : PipeState::unknown;
}

}  // namespace media::win::chrome_inspect
