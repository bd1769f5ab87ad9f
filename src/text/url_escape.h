#pragma once

#include <string>
#include <string_view>

// Percent-encoding (RFC 3986).
namespace media::win::chrome_inspect {

// Every byte but letters, digits, "-", ".", "_" and "~" as "%XX".
std::string percentEncode(std::string_view text);

// A request target with what cannot stand in a request line escaped: controls, blanks, quotes,
// bytes past ASCII, and "#", behind which nothing would be sent. Everything else, "%" too, is left
// as it is.
std::string escapeTarget(std::string_view target);

}  // namespace media::win::chrome_inspect
