#include "platform/pipe_client.h"

#include <string>

#include "platform/win/handles_win.h"

namespace media::win::chrome_inspect {
namespace {

// Waits for a call that was begun; as the only one on its pipe it needs no event of its own. One
// that is given up has ended when this returns, since the system uses its buffer until then; it may
// have been done after all.
PipeCall finish(const OwnedStream& pipe, OVERLAPPED& call, bool isDone, std::size_t& count,
                const OwnedSignal& signal, std::uint32_t timeoutMs) {
  const HANDLE waited[] = {handleOf(pipe), handleOf(signal)};
  const DWORD outcome =
      isDone ? WAIT_OBJECT_0 : WaitForMultipleObjects(2, waited, FALSE, timeoutMs);
  if (outcome != WAIT_OBJECT_0) CancelIoEx(handleOf(pipe), &call);
  DWORD done = 0;
  if (GetOverlappedResult(handleOf(pipe), &call, &done, TRUE) && done > 0) {
    count = done;
    return PipeCall::done;
  }
  if (outcome == WAIT_OBJECT_0 + 1) return PipeCall::givenUp;
  return outcome == WAIT_TIMEOUT ? PipeCall::timedOut : PipeCall::ended;
}

// Begins a call by `begin`, which gets what it needs of the system, and waits for it.
template <class Begin>
PipeCall perform(const OwnedStream& pipe, std::size_t& count, const OwnedSignal& signal,
                 std::uint32_t timeoutMs, const Begin& begin) {
  OVERLAPPED call = {};
  const bool isDone = begin(call);
  if (!isDone && GetLastError() != ERROR_IO_PENDING) return PipeCall::ended;
  return finish(pipe, call, isDone, count, signal, timeoutMs);
}

}  // namespace

void SignalTraits::close(Raw raw) { CloseHandle(handleOf(raw)); }

bool makeSignal(OwnedSignal& signal) {
  const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (event == nullptr) return false;
  signal.reset(rawOf(event));
  return true;
}

void raiseSignal(const OwnedSignal& signal) { SetEvent(handleOf(signal)); }

bool waitForSignal(const OwnedSignal& signal, std::uint32_t timeoutMs) {
  return WaitForSingleObject(handleOf(signal), timeoutMs) == WAIT_OBJECT_0;
}

void TurnTraits::close(Raw raw) {
  ReleaseMutex(handleOf(raw));
  CloseHandle(handleOf(raw));
}

PipeCall takeTurn(const char* name, OwnedTurn& turn, const OwnedSignal& signal,
                  std::uint32_t timeoutMs) {
  // What is behind the last backslash, which stands for a name space.
  const std::string own = "Local\\" + std::string(name).substr(std::string(name).rfind('\\') + 1);
  OwnedHandle mutex(CreateMutexA(nullptr, FALSE, (own + "-turn").c_str()));
  if (!mutex) return PipeCall::ended;
  const HANDLE waited[] = {mutex.get(), handleOf(signal)};
  switch (WaitForMultipleObjects(2, waited, FALSE, timeoutMs)) {
    case WAIT_OBJECT_0:
    case WAIT_ABANDONED_0:  // its owner has ended without giving it back
      turn.reset(rawOf(mutex.release()));
      return PipeCall::done;
    case WAIT_OBJECT_0 + 1:
      return PipeCall::givenUp;
    case WAIT_TIMEOUT:
      return PipeCall::timedOut;
    default:
      return PipeCall::ended;
  }
}

PipeOpening openPipe(const char* name, OwnedStream& pipe) {
  constexpr DWORD flags = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  const HANDLE handle =
      CreateFileA(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    if (error == ERROR_PIPE_BUSY) return PipeOpening::busy;
    return error == ERROR_FILE_NOT_FOUND ? PipeOpening::absent : PipeOpening::failed;
  }
  pipe.reset(rawOf(handle));
  return PipeOpening::open;
}

PipeCall readPipe(const OwnedStream& pipe, char* buffer, std::size_t capacity, std::size_t& got,
                  const OwnedSignal& signal, std::uint32_t timeoutMs) {
  return perform(pipe, got, signal, timeoutMs, [&](OVERLAPPED& call) {
    return ReadFile(handleOf(pipe), buffer, oneCall(capacity), nullptr, &call) != 0;
  });
}

PipeCall writePipe(const OwnedStream& pipe, const char* bytes, std::size_t size,
                   std::size_t& written, const OwnedSignal& signal, std::uint32_t timeoutMs) {
  return perform(pipe, written, signal, timeoutMs, [&](OVERLAPPED& call) {
    return WriteFile(handleOf(pipe), bytes, oneCall(size), nullptr, &call) != 0;
  });
}

}  // namespace media::win::chrome_inspect
