#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Text that came from outside is bytes until it has been through here: the JSON library refuses to
// serialise anything that is not UTF-8 (RFC 3629). All functions are pure.
namespace media::win::chrome_inspect {

bool isValidUtf8(std::string_view text);

// `text` with every ill-formed sequence replaced by U+FFFD, one for each maximal subpart as the
// Unicode Standard recommends (chapter 3.9). May be up to three times as long.
std::string makeValidUtf8(std::string_view text);

// The longest beginning of `text` with at most `maxBytes` bytes that does not end inside a
// character. Exactly `maxBytes` bytes when the cut falls between characters.
std::string_view cutUtf8(std::string_view text, std::size_t maxBytes);

// What a foreign text (exception, path, child output, peer's error) becomes before it enters a JSON
// value: valid UTF-8 of at most `maxBytes` bytes.
std::string foreignText(std::string_view text, std::size_t maxBytes = 4096);

}  // namespace media::win::chrome_inspect
