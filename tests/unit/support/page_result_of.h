#pragma once

#include "screening/page_result.h"
#include "support/json_replies.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// What the agent gets of a result of the extension; a text when it is refused with that error.
inline nlohmann::json pageResult(const nlohmann::json& page) {
  JsonDocument document = documentOf(page);
  std::string result;
  std::string error;
  bool isFlagged = false;
  if (!appendPageResult(document, document.root(), result, isFlagged, error)) return error;
  return nlohmann::json::parse(result);
}

}  // namespace media::win::chrome_inspect
