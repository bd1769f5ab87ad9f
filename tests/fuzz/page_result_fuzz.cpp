// What an extension may send of a page, made up from the input, or the input itself as JSON: what
// is written of it for the agent must be what the functions over trees make of it.

#include "screening/page_result.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "support/page_tree.h"
#include "support/random_page.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

// Draws numbers from the input, and ones when it is used up, with which every list ends.
std::uint32_t draw(void* source) {
  auto& input = *static_cast<std::string_view*>(source);
  if (input.empty()) return 1;
  const std::uint32_t drawn = static_cast<unsigned char>(input.front());
  input.remove_prefix(1);
  return drawn;
}

void checkPage(std::string_view text) {
  JsonDocument document;
  std::string error;
  if (readJson(text, document, error) != ParseOutcome::ok || !document.root().isObject()) return;
  const json page = document.root().toValue();
  std::string result;
  bool isFlagged = false;
  const bool isTaken = appendPageResult(document, document.root(), result, isFlagged, error);
  try {
    const json wanted = pageResultByTree(page);
    require(isTaken && json::parse(result) == wanted);
    require(isFlagged == wanted.value("prompt_injection_detected", false));
  } catch (const json::type_error& failure) {
    require(!isTaken && error == failure.what());
  }
}

}  // namespace

void fuzz(std::string_view input) {
  checkPage(input);
  const bool wellFormed = draw(&input) % 2 == 0;
  checkPage(RandomPage(draw, &input).result(wellFormed).dump());
}

}  // namespace media::win::chrome_inspect
