#include "platform/process.h"

#include <utility>
#include <vector>

#include "platform/locks.h"
#include "platform/win/handles_win.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

struct HeapTraits {
  using Raw = void*;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { HeapFree(GetProcessHeap(), 0, raw); }
};

struct AttributesTraits {
  using Raw = LPPROC_THREAD_ATTRIBUTE_LIST;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { DeleteProcThreadAttributeList(raw); }
};

// The list lies in the memory, and is closed first.
struct AttributeList {
  Owned<HeapTraits> memory;
  Owned<AttributesTraits> attributes;
};

OwnedHandle duplicateHandle(HANDLE handle, bool inheritable) {
  const HANDLE self = GetCurrentProcess();
  HANDLE copy = nullptr;
  if (!DuplicateHandle(self, handle, self, &copy, 0, inheritable, DUPLICATE_SAME_ACCESS)) {
    return OwnedHandle();
  }
  return OwnedHandle(copy);
}

OwnedHandle openNullInput() {
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  return OwnedHandle(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 &inheritable, OPEN_EXISTING, 0, nullptr));
}

// What a child may inherit: only handles that are there, none of them twice, or the start fails.
struct InheritedHandles {
  HANDLE list[2] = {};
  DWORD count = 0;

  void add(const OwnedHandle& handle) {
    if (handle) list[count++] = handle.get();
  }
};

// An attribute list that names `inherited` and, unless it is null, `job`; both must outlive it.
// Empty when it cannot be made.
AttributeList makeAttributeList(InheritedHandles& inherited, HANDLE& job) {
  const DWORD count = job != nullptr ? 2 : 1;
  SIZE_T bytes = 0;
  InitializeProcThreadAttributeList(nullptr, count, 0, &bytes);  // fails, and sets the size
  AttributeList list;
  list.memory.reset(HeapAlloc(GetProcessHeap(), 0, bytes));
  auto* const raw = static_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(list.memory.get());
  if (raw == nullptr || !InitializeProcThreadAttributeList(raw, count, 0, &bytes)) return {};
  list.attributes.reset(raw);
  const bool isMade =
      UpdateProcThreadAttribute(raw, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, inherited.list,
                                inherited.count * sizeof(HANDLE), nullptr, nullptr) &&
      (job == nullptr || UpdateProcThreadAttribute(raw, 0, PROC_THREAD_ATTRIBUTE_JOB_LIST, &job,
                                                   sizeof job, nullptr, nullptr));
  return isMade ? std::move(list) : AttributeList();
}

STARTUPINFOEXW hiddenStart(HANDLE input, HANDLE output, LPPROC_THREAD_ATTRIBUTE_LIST attributes) {
  STARTUPINFOEXW start = {};
  start.StartupInfo.cb = sizeof start;
  start.StartupInfo.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  start.StartupInfo.wShowWindow = SW_HIDE;
  start.StartupInfo.hStdInput = input;
  start.StartupInfo.hStdOutput = output;
  start.StartupInfo.hStdError = output;
  start.lpAttributeList = attributes;
  return start;
}

// A job that ends what is in it when its handle is closed, by us or by the end of this process.
OwnedHandle makeJob() {
  OwnedHandle job(CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags =
      JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK;
  SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
  return job;
}

// Two starts at once could hand each other's inheritable handles to their children if one of them
// had no handle list; the lock also keeps the time short in which such handles exist at all.
Mutex& spawnMutex() {
  static Mutex& mutex = leaked<Mutex>();
  return mutex;
}

bool isEmptyJob(const OwnedHandle& job) {
  JOBOBJECT_BASIC_ACCOUNTING_INFORMATION state = {};
  return QueryInformationJobObject(job.get(), JobObjectBasicAccountingInformation, &state,
                                   sizeof state, nullptr) &&
         state.ActiveProcesses == 0;
}

// Keeps a child's job for as long as the child runs; those of children that have ended go.
void keepJob(OwnedHandle job) MORVA_REQUIRES(spawnMutex()) {
  static auto& jobs = leaked<std::vector<OwnedHandle>>();
  std::erase_if(jobs, isEmptyJob);
  jobs.push_back(std::move(job));
}

// Its errors are its own to report: it does not get our error mode.
SpawnResult startProcess(std::wstring commandLine, const std::wstring& folder, STARTUPINFOEXW& info,
                         OwnedProcess& process, std::uint32_t& systemError) {
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE,
                      CREATE_NO_WINDOW | CREATE_DEFAULT_ERROR_MODE | EXTENDED_STARTUPINFO_PRESENT,
                      nullptr, folder.empty() ? nullptr : folder.c_str(), &info.StartupInfo,
                      &started)) {
    systemError = GetLastError();
    return SpawnResult::failed;
  }
  CloseHandle(started.hThread);
  process.reset(rawOf(started.hProcess));
  return SpawnResult::ok;
}

}  // namespace

void ProcessTraits::close(Raw raw) { CloseHandle(handleOf(raw)); }

SpawnResult spawnHidden(const std::wstring& commandLine, const std::wstring& folder,
                        StreamId output, OwnedProcess& process, std::uint32_t& systemError) {
  const Lock lock(spawnMutex());
  const OwnedHandle childOutput = duplicateHandle(handleOf(output), true);
  if (!childOutput) {
    systemError = GetLastError();
    return SpawnResult::failed;
  }
  const OwnedHandle childInput = openNullInput();  // a child without standard input still works
  InheritedHandles inherited;
  inherited.add(childOutput);
  inherited.add(childInput);
  OwnedHandle job = makeJob();
  const auto start = [&](HANDLE jobAtBirth) {
    const AttributeList list = makeAttributeList(inherited, jobAtBirth);
    if (!list.attributes) return SpawnResult::noAttributeList;
    STARTUPINFOEXW info = hiddenStart(childInput ? childInput.get() : nullptr, childOutput.get(),
                                      list.attributes.get());
    return startProcess(commandLine, folder, info, process, systemError);
  };
  SpawnResult result = start(job.get());
  // A job may be refused where this process is in one itself, or on an older system. Without one
  // only the clean-up is lost.
  if (result != SpawnResult::ok) {
    result = start(nullptr);
    if (result == SpawnResult::ok) AssignProcessToJobObject(job.get(), handleOf(process));
  }
  if (result == SpawnResult::ok) keepJob(std::move(job));
  return result;
}

bool probeProcessStart(const std::wstring& path, std::uint32_t& systemError) {
  constexpr DWORD endMs = 2000;
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESHOWWINDOW;
  start.wShowWindow = SW_HIDE;
  PROCESS_INFORMATION started = {};
  std::wstring commandLine = L'"' + path + L'"';
  if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE,
                      CREATE_SUSPENDED | DETACHED_PROCESS | CREATE_NEW_PROCESS_GROUP, nullptr,
                      nullptr, &start, &started)) {
    systemError = GetLastError();
    return false;
  }
  const OwnedHandle process(started.hProcess);
  const OwnedHandle thread(started.hThread);
  TerminateProcess(process.get(), 0);
  WaitForSingleObject(process.get(), endMs);
  return true;
}

OwnedProcess duplicateProcess(const OwnedProcess& process) {
  OwnedHandle copy = duplicateHandle(handleOf(process), false);
  return OwnedProcess(rawOf(copy.release()));
}

bool waitForExit(const OwnedProcess& process, std::uint32_t timeoutMs) {
  return WaitForSingleObject(handleOf(process), timeoutMs) == WAIT_OBJECT_0;
}

std::uint32_t exitCodeOf(const OwnedProcess& process) {
  DWORD code = 0;
  return GetExitCodeProcess(handleOf(process), &code) ? code : 0;
}

bool isProcessRunning(std::uint32_t processId) {
  const OwnedHandle waitable(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, processId));
  // An exit code may be 259 too, so the wait decides where it is allowed.
  if (waitable) return WaitForSingleObject(waitable.get(), 0) == WAIT_TIMEOUT;
  const OwnedHandle queryable(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
  DWORD code = 0;
  return queryable && GetExitCodeProcess(queryable.get(), &code) && code == STILL_ACTIVE;
}

void terminateProcess(const OwnedProcess& process) { TerminateProcess(handleOf(process), 0); }

}  // namespace media::win::chrome_inspect
