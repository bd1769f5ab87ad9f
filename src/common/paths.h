#pragma once

#include <string>

namespace media::win::chrome_inspect {

// `folder` and `name` with exactly one separator between them.
std::wstring joinPath(const std::wstring& folder, const std::wstring& name);

// Makes a folder and what is missing above it; true when it exists afterwards.
bool makeFolderWithParents(const std::wstring& path);

// The host's own folder for the user, made when missing: "chrome-extension" in the package's
// "LocalState" when the process runs with a package identity, else below the roaming
// application-data folder. Looked up once per process; empty when the system names no such folder.
// A folder that cannot be made is still named. Thread-safe.
const std::wstring& hostDataFolder();

// Where that folder is or would be, looked up anew; nothing is made.
std::wstring hostDataFolderPath();

// The same as the environment has it: the variable APPDATA, which the system sets to that folder,
// stands for a question to the shell, whose libraries would cost every start more than all else.
// Empty without it.
std::wstring hostDataFolderPathByEnvironment();

}  // namespace media::win::chrome_inspect
