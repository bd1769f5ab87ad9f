#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The separator between path components on this system.
extern const wchar_t pathSeparator;

// Whether `path` names something that exists and is no folder, or is a folder.
bool isExistingFile(const std::wstring& path);
bool isExistingFolder(const std::wstring& path);

// Makes one folder; true when it exists afterwards, made by us or not.
bool makeFolder(const std::wstring& path);

// Looks `name` up along the system's search order for executables; at most 259 characters are
// taken, a longer result is a miss. Windows: SearchPathW, which also looks into the current
// folder. POSIX: the folders of "PATH".
bool searchExecutable(const std::wstring& name, std::wstring& path);

}  // namespace media::win::chrome_inspect
