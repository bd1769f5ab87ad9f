#pragma once

#include <string>

// What the desktop shell does with a file, a folder or an address.
namespace media::win::chrome_inspect {

// Hands `file` to the shell under `verb` ("open", "explore"), with `parameters` (none when empty).
// May block for long: in a dialog, in a program that starts slowly, on a network path. Sets up and
// tears down COM for the call, so any thread may call it. False when the shell refused.
// Windows side: ShellExecuteExW (learn.microsoft.com, shellapi.h), shown normally. POSIX twin: runs
// `file` with `parameters` as its one argument, or `xdg-open` with `file` when there are none, and
// waits for it.
bool shellExecute(const std::wstring& file, const wchar_t* verb, const std::wstring& parameters);

}  // namespace media::win::chrome_inspect
