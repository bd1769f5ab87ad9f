#include "support/test_system.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdlib>

#include "common/product_names.h"
#include "platform/win/handles_win.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {

// Standard output and error are one handle, and a null device is no pipe.
const std::string_view inheritedByChild = "1 pipe";
const std::size_t handlesOfTheSystem = 20;

std::uint32_t ownProcessId() { return GetCurrentProcessId(); }

std::string inheritedStreams() {
  constexpr std::uintptr_t handleStep = 4;       // handle values are multiples of it
  constexpr std::uintptr_t lastHandle = 0x4000;  // far more than a fresh process has
  int pipes = 0;
  for (std::uintptr_t value = handleStep; value <= lastHandle; value += handleStep) {
    if (GetFileType(reinterpret_cast<HANDLE>(value)) == FILE_TYPE_PIPE) ++pipes;
  }
  return std::to_string(pipes) + " pipe";
}

// Wine 8 always says 0, so there only the twin's descriptors are counted.
std::size_t openHandleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return count;
}

std::function<bool()> sleepOfThisThread() {
  return [end = GetTickCount64() + 50] { return GetTickCount64() > end; };
}

// The run-time's own call: it changes its copy as well as the system's. The wide one: the other
// takes the text for one in the code page of the machine.
void setEnvironment(const std::string& name, const std::string& value) {
  _wputenv_s(toWide(name).c_str(), toWide(value).c_str());
}

// The C run-time keeps its own handle, so the test framework's output is not captured.
StreamId replaceStandardOutput(StreamId stream) {
  const HANDLE old = GetStdHandle(STD_OUTPUT_HANDLE);
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(stream));
  return reinterpret_cast<StreamId>(old);
}

void restoreStandardOutput(StreamId old) {
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(old));
}

bool strikeHost() {
  const OwnedHandle pipe(CreateFileA(inspectPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                     OPEN_EXISTING, 0, nullptr));
  ULONG id = 0;
  if (!pipe || !GetNamedPipeServerProcessId(pipe.get(), &id)) return false;
  const OwnedHandle host(OpenProcess(PROCESS_ALL_ACCESS, FALSE, id));
  constexpr std::uintptr_t nowhere = 0x10;
  const OwnedHandle thread(CreateRemoteThread(host.get(), nullptr, 0,
                                              reinterpret_cast<LPTHREAD_START_ROUTINE>(nowhere),
                                              nullptr, 0, nullptr));
  return static_cast<bool>(thread);
}

void lookForLostMemory() {}

std::string processState() {
  BOOL isInJob = FALSE;
  const bool isKnown = IsProcessInJob(GetCurrentProcess(), nullptr, &isInJob) != FALSE;
  return std::string(isKnown && isInJob ? "in a job" : "in no job") + ", error mode " +
         std::to_string(GetErrorMode());
}

void useConsoleInput() {
  SetStdHandle(STD_INPUT_HANDLE, CreateFileW(L"CONIN$", GENERIC_READ | GENERIC_WRITE,
                                             FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::uint16_t portOf(const OwnedSocket& listener) {
  sockaddr_in address = {};
  int size = sizeof address;
  getsockname(static_cast<SOCKET>(listener.get()), reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

bool sendsAtOnce(const OwnedSocket& socket) {
  int on = 0;
  int size = sizeof on;
  getsockopt(static_cast<SOCKET>(socket.get()), IPPROTO_TCP, TCP_NODELAY,
             reinterpret_cast<char*>(&on), &size);
  return on != 0;
}

void finishSending(const OwnedSocket& socket) {
  shutdown(static_cast<SOCKET>(socket.get()), SD_SEND);
}

}  // namespace media::win::chrome_inspect
