// Any text: the parser takes it or says why not, and never takes what it cannot serialise again.
// What the library takes as it is, it takes too, with the same value; the repair of lone surrogates
// only ever adds to that.

#include "text/json_parse.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {

void fuzz(std::string_view text) {
  nlohmann::json value = "before";
  std::string error;
  const ParseOutcome outcome = parseJson(text, value, error);
  require(isValidUtf8(error));
  const nlohmann::json plain = nlohmann::json::parse(text, nullptr, false);
  if (outcome == ParseOutcome::ok) {
    require(dumpJson(value) == value.dump());
    if (!plain.is_discarded()) require(plain == value);
    if (plain.is_discarded()) require(text.find("\\u") != text.npos);
  } else {
    require(value == "before" && !error.empty());
    if (outcome == ParseOutcome::invalid) require(plain.is_discarded());
  }
}

}  // namespace media::win::chrome_inspect
