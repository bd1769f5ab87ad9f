#pragma once

#include <cstdint>
#include <string>

// Looks into the file system that come to an end: a share whose server is away keeps the system
// busy for a minute.
namespace media::win::chrome_inspect {

inline constexpr std::uint32_t fileLookMs = 5000;

// As isFileAsWritten and isFolderAsWritten; what has not been seen after 5 s is not there.
bool isReachableFile(const std::wstring& path);
bool isReachableFolder(const std::wstring& path);

}  // namespace media::win::chrome_inspect
