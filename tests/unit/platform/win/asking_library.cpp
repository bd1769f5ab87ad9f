// A library that asks for the types of the standard streams while it is loaded, as every one does
// that has a C run-time linked into it. It refuses to load when one of them is a pipe.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  return GetFileType(GetStdHandle(STD_INPUT_HANDLE)) != FILE_TYPE_PIPE &&
         GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) != FILE_TYPE_PIPE;
}
