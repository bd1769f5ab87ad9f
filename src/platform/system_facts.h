#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The full path of the executable that this process runs; false when it is not known.
bool ownProgramPath(std::wstring& path);

// What system this is, such as "Windows 10.0.19045"; empty when it is not known.
std::string systemVersion();

}  // namespace media::win::chrome_inspect
