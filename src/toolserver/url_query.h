#pragma once

#include <string>
#include <string_view>

namespace media::win::chrome_inspect {

// The value of the first parameter `name` in a query, undecoded; empty when there is none.
std::string_view queryParam(std::string_view query, std::string_view name);

// `text` with "%XX" and "+" decoded into bytes; what is no such escape is kept. Not necessarily
// UTF-8.
std::string urlDecode(std::string_view text);

}  // namespace media::win::chrome_inspect
