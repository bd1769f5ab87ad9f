#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

// Every JSON text that comes into the process is parsed here, whoever sent it.
namespace media::win::chrome_inspect {

enum class ParseOutcome { ok, invalid, overLimit };

// Parses `text` as one JSON document (RFC 8259, no comments). An escape for one half of a surrogate
// pair, which JavaScript strings may hold, is read as U+FFFD. On anything but `ok`, `value` is
// untouched and `error` is a valid UTF-8 text: the library's message, or one of
// text/json_limits.h (`overLimit`).
// Never throws; running out of memory is `invalid`, and `error` may then be empty.
ParseOutcome parseJson(std::string_view text, nlohmann::json& value, std::string& error);

// `value` as compact text. A string in it that is not UTF-8, which only our own mistake can put
// there, is written with U+FFFD in place of what is wrong instead of failing.
std::string dumpJson(const nlohmann::json& value);

}  // namespace media::win::chrome_inspect
