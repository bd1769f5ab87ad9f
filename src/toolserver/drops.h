#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

inline constexpr std::size_t maxRecentDrops = 200;
inline constexpr std::size_t maxDropNameBytes = 120;

// The folder for them, below the host's data folder.
inline constexpr const wchar_t* dropsFolderName = L"chat-paste";

// Whether a file of this age counts towards the limit: a clock that was wrong may have dated files
// a year ahead, and those are not recent either.
bool isRecentDrop(std::int64_t ageMs);

// Keeps the bytes of a pasted or dropped file as a new file in the "chat-paste" folder below the
// host's data folder, deleting files there that are older than a day. Returns
// {"ok":true,"path":...} or {"ok":false,"error":...}. `nameHint` is meant to be UTF-8. Threads:
// any.
nlohmann::json saveDroppedFile(std::string_view nameHint, const std::string& body);

// The part of a name hint that is kept: the last path component without control characters and
// those that Windows forbids, at most 120 bytes; "file" when nothing is left.
std::string cleanDropName(std::string_view nameHint);

}  // namespace media::win::chrome_inspect
