#pragma once

#include <cstddef>
#include <string>

#include "platform/files.h"

namespace media::win::chrome_inspect {

// Reads a file that has just been opened, with what was found out about it, to its end. False, and
// `bytes` untouched, when it is no regular file, has more than `maxBytes`, or cannot be read.
bool readWholeFile(const OwnedFile& file, const FileFacts& facts, std::size_t maxBytes,
                   std::string& bytes);

// The same with a file that is opened by openForReading.
bool readWholeFile(const std::wstring& path, std::size_t maxBytes, std::string& bytes);

}  // namespace media::win::chrome_inspect
