#pragma once

#include <string>
#include <vector>

namespace media::win::chrome_inspect {

// The arguments of a Windows command line as far as the host writes them: words between blanks,
// and double quotes, which are dropped, around what holds blanks. There is no escape character.
std::vector<std::string> splitCommandLine(const std::wstring& line);

}  // namespace media::win::chrome_inspect
