// Any bytes as text: what comes out is UTF-8, and what was UTF-8 comes out as it was.

#include "text/utf8.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "text/wide.h"

namespace {

void check(bool holds) {
  if (!holds) std::abort();
}

bool libraryTakes(std::string_view text) {
  try {
    (void)nlohmann::json(text).dump();
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const bool valid = isValidUtf8(text);
  check(valid == libraryTakes(text));
  const std::string repaired = makeValidUtf8(text);
  check(libraryTakes(repaired) && (repaired == text) == valid);
  const std::size_t limit = size == 0 ? 4 : 4 + data[0];
  const std::string cut = foreignText(text, limit);
  check(cut.size() <= limit && libraryTakes(cut));
  std::string joined;
  for (const std::string_view piece : splitUtf8(text, limit)) {
    check(!piece.empty() && piece.size() <= limit);
    if (valid) check(isValidUtf8(piece));
    joined += piece;
  }
  check(joined == text);
  check(toUtf8(toWide(text)) == repaired);
  check(isValidUtf8(toUtf8(wideFromUtf16Bytes(text))));
  return 0;
}
