#include "platform/named_pipe.h"

#include <windows.h>

namespace media::win::chrome_inspect {
namespace {

constexpr DWORD bufferBytes = 1048576;
constexpr DWORD defaultTimeoutMs = 5000;

HANDLE handleOf(std::intptr_t raw) { return reinterpret_cast<HANDLE>(raw); }

}  // namespace

bool createPipeInstance(const char* name, OwnedStream& pipe) {
  const HANDLE handle =
      CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX,
                       PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
                       1, bufferBytes, bufferBytes, defaultTimeoutMs, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  pipe.reset(reinterpret_cast<StreamId>(handle));
  return true;
}

bool connectPipeClient(OwnedStream& pipe) {
  // A client that came between the creation and this call is already there.
  return ConnectNamedPipe(handleOf(pipe.get()), nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
}

void flushPipe(StreamId pipe) { FlushFileBuffers(handleOf(pipe)); }

void disconnectPipe(StreamId pipe) { DisconnectNamedPipe(handleOf(pipe)); }

void CallerTraits::close(Raw raw) { CloseHandle(handleOf(raw)); }

OwnedCaller currentCaller() {
  const HANDLE self = GetCurrentProcess();
  HANDLE thread = nullptr;
  if (!DuplicateHandle(self, GetCurrentThread(), self, &thread, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return OwnedCaller();
  }
  return OwnedCaller(reinterpret_cast<CallerTraits::Raw>(thread));
}

bool breakOffPipeCall(const OwnedCaller& caller, StreamId /*pipe*/) {
  return CancelSynchronousIo(handleOf(caller.get())) != 0;
}

}  // namespace media::win::chrome_inspect
