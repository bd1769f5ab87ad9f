#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The folder that the user has chosen for the command-line program; empty when none. Kept for the
// life of the process. Threads: any.
std::wstring savedCliDir();
void saveCliDir(std::wstring folder);

}  // namespace media::win::chrome_inspect
