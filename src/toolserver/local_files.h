#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

inline constexpr std::uint64_t maxServedFileBytes = 16777216;  // 16 MiB, inclusive

// Reads a file that the tool server may serve: a regular, non-empty file inside the host's data
// folder. `path` is UTF-8. Every refusal has the one error "file is not available", so that the
// caller learns nothing about other places; `body` is then empty.
void loadLocalFile(std::string_view path, std::string& body, std::string& contentType,
                   std::string& error);

// Whether a final path lies below the folder with this final path.
bool isInsideFolder(std::wstring_view finalPath, std::wstring_view folderFinalPath);

// The content type for a file name, by its extension.
std::string_view contentTypeFor(std::string_view path);

}  // namespace media::win::chrome_inspect
