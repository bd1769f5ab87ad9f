// Prints a number for each line on its standard input: how many handles the process named in the
// first argument has open. Under Wine only a Windows program can tell.
#include <windows.h>
#include <tlhelp32.h>

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

// The whole system's handles, in the form of SystemHandleInformation: Wine's GetProcessHandleCount
// always says 0.
struct HandleEntry {
  ULONG process;
  UCHAR type;
  UCHAR flags;
  USHORT handle;
  void* object;
  ULONG access;
};
struct HandleList {
  ULONG count;
  HandleEntry entries[1];
};
using Query = LONG(WINAPI*)(ULONG, void*, ULONG, ULONG*);
constexpr ULONG systemHandleInformation = 16;

long handlesOf(DWORD id) {
  static const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll"), "NtQuerySystemInformation")));
  static std::vector<char> buffer(64u << 20);
  ULONG size = 0;
  if (query(systemHandleInformation, buffer.data(), static_cast<ULONG>(buffer.size()), &size) < 0) {
    return -1;
  }
  const auto* list = reinterpret_cast<const HandleList*>(buffer.data());
  return std::count_if(list->entries, list->entries + list->count,
                       [id](const HandleEntry& entry) { return entry.process == id; });
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
