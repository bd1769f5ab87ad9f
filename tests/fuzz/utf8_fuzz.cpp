// Any bytes as text: what comes out is UTF-8, and what was UTF-8 comes out as it was.

#include "text/utf8.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

bool libraryTakes(std::string_view text) {
  try {
    (void)nlohmann::json(text).dump();
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

}  // namespace

void fuzz(std::string_view text) {
  const bool valid = isValidUtf8(text);
  require(valid == libraryTakes(text));
  const std::string repaired = makeValidUtf8(text);
  require(libraryTakes(repaired) && (repaired == text) == valid);
  const std::size_t limit = text.empty() ? 4 : 4 + static_cast<unsigned char>(text[0]);
  const std::string cut = foreignText(text, limit);
  require(cut.size() <= limit && libraryTakes(cut));
  std::string joined;
  for (std::string_view rest = text, piece; !rest.empty(); rest.remove_prefix(piece.size())) {
    piece = cutUtf8(rest, limit);
    require(!piece.empty() && piece.size() <= limit);
    if (valid) require(isValidUtf8(piece));
    joined += piece;
  }
  require(joined == text);
  require(toUtf8(toWide(text)) == repaired);
  require(isValidUtf8(toUtf8(wideFromUtf16Bytes(text))));
}

}  // namespace media::win::chrome_inspect
