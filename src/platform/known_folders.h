#pragma once

#include <string>

namespace media::win::chrome_inspect {

// Per-user folders of the system, without a trailing separator. False when the system has none.
// POSIX: the environment variables "APPDATA" and "LOCALAPPDATA", which tests set.
bool roamingAppDataFolder(std::wstring& folder);
bool localAppDataFolder(std::wstring& folder);

// The "LocalState" folder of the package whose identity this process runs with; false without one
// (GetCurrentPackageFullName). POSIX: always false.
bool packageLocalStateFolder(std::wstring& folder);

}  // namespace media::win::chrome_inspect
