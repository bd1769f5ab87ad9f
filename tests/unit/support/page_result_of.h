#pragma once

#include "screening/page_result.h"
#include "support/testing.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {

// What the agent gets of a result of the extension; a text when it is refused with that error.
inline nlohmann::json pageResult(const nlohmann::json& page) {
  JsonDocument document;
  std::string result;
  std::string error;
  EXPECT_EQ(readJson(dumpJson(page), document, error), ParseOutcome::ok) << error;
  if (!appendPageResult(document, document.root(), result, error)) return error;
  return nlohmann::json::parse(result);
}

}  // namespace media::win::chrome_inspect
