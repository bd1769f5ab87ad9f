#include "text/json_parse.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "text/ascii.h"
#include "text/json_limits.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

// The value of the escape \uXXXX at `at`, or -1 when none stands there.
int unicodeEscapeAt(std::string_view text, std::size_t at) {
  if (text.size() < at + 6 || text[at] != '\\' || text[at + 1] != 'u') return -1;
  int value = 0;
  for (std::size_t i = at + 2; i < at + 6; ++i) {
    const int digit = hexDigitValue(text[i]);
    if (digit < 0) return -1;
    value = value * 16 + digit;
  }
  return value;
}

bool isHigh(int unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLow(int unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Replaces the escape of each lone surrogate half by that of U+FFFD; true when there was one.
bool repairLoneSurrogates(std::string_view text, std::string& repaired) {
  bool found = false;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] != '\\') {
      repaired += text[at++];
      continue;
    }
    const int unit = unicodeEscapeAt(text, at);
    std::size_t size = std::min<std::size_t>(unit >= 0 ? 6 : 2, text.size() - at);
    if (isHigh(unit) && isLow(unicodeEscapeAt(text, at + 6))) size = 12;
    const bool lone = size == 6 && (isHigh(unit) || isLow(unit));
    found = found || lone;
    repaired += lone ? std::string_view("\\ufffd") : text.substr(at, size);
    at += size;
  }
  return found;
}

void setError(std::string& error, std::string_view text) {
  try {
    error = foreignText(text);
  } catch (const std::bad_alloc&) {
    error.clear();  // no memory even for the text
  }
}

bool tryParse(std::string_view text, nlohmann::json& value, std::string& error) {
  try {
    value = nlohmann::json::parse(text);
    return true;
  } catch (const std::exception& failure) {
    setError(error, failure.what());
    return false;
  }
}

}  // namespace

ParseOutcome parseJson(std::string_view text, nlohmann::json& value, std::string& error) {
  if (const std::string_view limit = jsonLimitExceeded(text); !limit.empty()) {
    setError(error, limit);
    return ParseOutcome::overLimit;
  }
  std::string firstError;
  if (tryParse(text, value, firstError)) return ParseOutcome::ok;
  try {
    std::string repaired;
    std::string ignored;  // the first message is about the text as it was sent
    if (repairLoneSurrogates(text, repaired) && tryParse(repaired, value, ignored)) {
      return ParseOutcome::ok;
    }
  } catch (const std::bad_alloc&) {  // the text does not parse, repaired or not
  }
  error = std::move(firstError);
  return ParseOutcome::invalid;
}

std::string dumpJson(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace media::win::chrome_inspect
