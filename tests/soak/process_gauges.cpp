// Prints a number for each line on its standard input: how many handles the process named in the
// first argument has open. Under Wine only a Windows program can tell.
#include <windows.h>
// after windows.h
#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <vector>

namespace {

DWORD processNamed(const wchar_t* name) {
  PROCESSENTRY32W entry = {};
  entry.dwSize = sizeof entry;
  HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  DWORD found = 0;
  for (BOOL more = Process32FirstW(all, &entry); more; more = Process32NextW(all, &entry)) {
    if (_wcsicmp(entry.szExeFile, name) == 0) found = entry.th32ProcessID;
  }
  CloseHandle(all);
  return found;
}

// From the list of the whole system: Wine's GetProcessHandleCount always says 0.
long handlesOf(DWORD id) {
  constexpr auto systemHandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(16);
  static std::vector<char> buffer(64u << 20);
  const auto size = static_cast<ULONG>(buffer.size());
  if (NtQuerySystemInformation(systemHandleInformation, buffer.data(), size, nullptr) < 0) {
    return -1;
  }
  const auto* list = reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(buffer.data());
  return static_cast<long>(
      std::count_if(list->Handle, list->Handle + list->Count,
                    [id](const SYSTEM_HANDLE_ENTRY& entry) { return entry.OwnerPid == id; }));
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  char line[16];
  while (argc == 2 && std::fgets(line, sizeof line, stdin) != nullptr) {
    std::printf("%ld\n", handlesOf(processNamed(argv[1])));
    std::fflush(stdout);
  }
  return 0;
}
