#pragma once

#include <string>

namespace media::win::chrome_inspect {

// The folder in which the user says that the command-line program lives; empty when not set. Kept
// for the life of the process. Threads: any.
std::wstring savedCliDir();
void saveCliDir(std::wstring folder);

}  // namespace media::win::chrome_inspect
