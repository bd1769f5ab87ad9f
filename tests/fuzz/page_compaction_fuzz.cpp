// What an extension may send of a page: made up from the input, or the input itself as JSON. It is
// screened, marked and compacted as the bridge does it, and must give something that can be sent.

#include "screening/page_compaction.h"

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "screening/page_screening.h"
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

void checkPage(json page) {
  InjectionVerdict verdict;
  try {
    verdict = screenPageModel(page);
  } catch (const json::type_error&) {
    return;  // a verdict of the page's own that is none
  }
  if (verdict.detected) markPageModelFlagged(page, verdict);
  json again = page;
  redactInjectedFields(again);
  require(!verdict.detected || again == page);
  const json compacted = compactBrowserResult(page);
  (void)compacted.dump();
  if (!compacted.is_object() || !compacted.contains("url") || !compacted["url"].is_string()) return;
  require(compacted["url"].get_ref<const std::string&>().size() <= 123);
}

}  // namespace

void fuzz(std::string_view input) {
  json page;
  std::string error;
  if (parseJson(input, page, error) == ParseOutcome::ok) {
    checkPage(std::move(page));
    return;
  }
  const bool wellFormed = draw(&input) % 2 == 0;
  RandomPage pages(draw, &input);
  page = pages.result(wellFormed);
  require(!wellFormed ||
          compactBrowserResult(page).dump().find("\"pageText\"") == std::string::npos);
  checkPage(std::move(page));
}

}  // namespace media::win::chrome_inspect
