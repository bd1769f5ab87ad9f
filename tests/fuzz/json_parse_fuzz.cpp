// Any text: the parser takes it or says why not, and never takes what it cannot serialise again.
// What the library takes as it is, it takes too, with the same value; the repair of lone surrogates
// only ever adds to that.

#include "text/json_parse.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "text/utf8.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  nlohmann::json value = "before";
  std::string error;
  const ParseOutcome outcome = parseJson(text, value, error);
  check(isValidUtf8(error));
  const nlohmann::json plain = nlohmann::json::parse(text, nullptr, false);
  if (outcome == ParseOutcome::ok) {
    check(dumpJson(value) == value.dump());
    if (!plain.is_discarded()) check(plain == value);
    if (plain.is_discarded()) check(text.find("\\u") != text.npos);
  } else {
    check(value == "before" && !error.empty());
    if (outcome == ParseOutcome::invalid) check(plain.is_discarded());
  }
  return 0;
}
