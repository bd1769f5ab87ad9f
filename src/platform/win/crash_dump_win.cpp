#include "platform/crash_dump.h"

#include <windows.h>
// After what it needs.
#include <dbghelp.h>

#include <atomic>
#include <csignal>
#include <cwchar>
#include <utility>

#include "platform/win/handles_win.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

// Windows takes a fraction of a second; Wine reads all symbols first.
constexpr DWORD writeLimitMs = 100'000;
constexpr std::size_t pathCapacity = 1024;
constexpr UINT abortExitCode = 3;  // of every C run-time's abort
// How GCC's run-time throws: nobody handling it means that std::terminate comes next.
constexpr DWORD gccThrowMask = 0x20FFFFFF;
constexpr DWORD gccThrow = 0x20474343;
constexpr DWORD fatalAppExit = 0x40000015;  // STATUS_FATAL_APP_EXIT, which not every header has

using WriteDump = decltype(&MiniDumpWriteDump);

struct CrashTrace {
  CrashPlan plan;
  std::atomic<bool> isWriting = false;
  MINIDUMP_EXCEPTION_INFORMATION crash = {};
  wchar_t path[pathCapacity] = {};  // whatever broke, its memory is there
};

CrashTrace& crashTrace() {
  static CrashTrace& trace = leaked<CrashTrace>();
  return trace;
}

void composePath(CrashTrace& trace) {
  SYSTEMTIME now = {};
  GetSystemTime(&now);
  std::swprintf(trace.path, pathCapacity, L"%ls%04u%02u%02uT%02u%02u%02uZ-%lu.dmp",
                trace.plan.prefix.c_str(), now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
                now.wSecond, GetCurrentProcessId());
}

OwnedHandle makeFile(const wchar_t* path) {
  return OwnedHandle(
      CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool writeTo(HANDLE file, MINIDUMP_EXCEPTION_INFORMATION& crash) {
  const HMODULE library = LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr) return false;
  const FARPROC found = GetProcAddress(library, "MiniDumpWriteDump");
  if (found == nullptr) return false;
  const auto write = reinterpret_cast<WriteDump>(reinterpret_cast<void*>(found));
  return write(GetCurrentProcess(), GetCurrentProcessId(), file, MiniDumpNormal, &crash, nullptr,
               nullptr) != 0;
}

// On a thread of its own: that of the crash may have no stack left, and MiniDumpWriteDump does not
// see the stack of its own caller whole.
DWORD WINAPI writeTrace(void* /*unused*/) {
  CrashTrace& trace = crashTrace();
  composePath(trace);
  OwnedHandle file = makeFile(trace.path);
  if (!file) {
    trace.plan.makeFolder();
    file = makeFile(trace.path);
  }
  if (!file) return 0;
  const bool isWritten = writeTo(file.get(), trace.crash);
  file.reset();
  if (!isWritten) DeleteFileW(trace.path);
  trace.plan.afterwards();
  return 0;
}

[[noreturn]] void endWithTrace(EXCEPTION_POINTERS* exception, UINT exitCode) {
  CrashTrace& trace = crashTrace();
  if (trace.isWriting.exchange(true)) Sleep(INFINITE);  // another thread ends the process
  trace.crash = {GetCurrentThreadId(), exception, FALSE};
  const OwnedHandle writer(CreateThread(nullptr, 0, writeTrace, nullptr, 0, nullptr));
  if (writer) WaitForSingleObject(writer.get(), writeLimitMs);
  for (;;) TerminateProcess(GetCurrentProcess(), exitCode);
}

LONG WINAPI onException(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if ((code & gccThrowMask) == gccThrow) return EXCEPTION_CONTINUE_EXECUTION;
  endWithTrace(exception, code);
}

// std::terminate ends here, on every thread: what std::set_terminate sets counts for one thread
// only where Microsoft's run-time is used.
extern "C" void onAbort(int /*signal*/) {
  CONTEXT context = {};
  RtlCaptureContext(&context);
  EXCEPTION_RECORD record = {};
  record.ExceptionCode = fatalAppExit;
  EXCEPTION_POINTERS exception = {&record, &context};
  endWithTrace(&exception, abortExitCode);
}

}  // namespace

void traceCrashes(CrashPlan plan) {
  crashTrace().plan = std::move(plan);
  SetUnhandledExceptionFilter(onException);
  std::signal(SIGABRT, onAbort);
}

}  // namespace media::win::chrome_inspect
