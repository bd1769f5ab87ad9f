#include "text/json_parse.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "text/json_limits.h"
#include "text/lone_surrogates.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

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
