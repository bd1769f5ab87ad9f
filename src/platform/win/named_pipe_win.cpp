#include "platform/named_pipe.h"

#include "platform/win/handles_win.h"

namespace media::win::chrome_inspect {
namespace {

constexpr DWORD bufferBytes = 1048576;
constexpr DWORD defaultTimeoutMs = 5000;

}  // namespace

bool createPipeInstance(const char* name, OwnedStream& pipe) {
  const HANDLE handle =
      CreateNamedPipeA(name, PIPE_ACCESS_DUPLEX,
                       PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS,
                       1, bufferBytes, bufferBytes, defaultTimeoutMs, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  pipe.reset(rawOf(handle));
  return true;
}

bool connectPipeClient(OwnedStream& pipe) {
  // A client that came between the creation and this call is already there.
  return ConnectNamedPipe(handleOf(pipe.get()), nullptr) || GetLastError() == ERROR_PIPE_CONNECTED;
}

void flushPipe(StreamId pipe) { FlushFileBuffers(handleOf(pipe)); }

void disconnectPipe(StreamId pipe) { DisconnectNamedPipe(handleOf(pipe)); }

bool isPipeClientGone(StreamId pipe) {
  return !PeekNamedPipe(handleOf(pipe), nullptr, 0, nullptr, nullptr, nullptr);
}

void CallerTraits::close(Raw raw) { CloseHandle(handleOf(raw)); }

OwnedCaller currentCaller() {
  const HANDLE self = GetCurrentProcess();
  HANDLE thread = nullptr;
  if (!DuplicateHandle(self, GetCurrentThread(), self, &thread, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
    return OwnedCaller();
  }
  return OwnedCaller(rawOf(thread));
}

bool breakOffPipeCall(const OwnedCaller& caller, StreamId /*pipe*/) {
  return CancelSynchronousIo(handleOf(caller.get())) != 0;
}

PipeState probePipe(const std::string& name) {
  constexpr DWORD shortestWaitMs = 1;  // 0 would mean the time-out that the server chose
  if (WaitNamedPipeA(name.c_str(), shortestWaitMs)) return PipeState::listening;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND) return PipeState::absent;
  return error == ERROR_SEM_TIMEOUT ? PipeState::busy : PipeState::unknown;
}

}  // namespace media::win::chrome_inspect
