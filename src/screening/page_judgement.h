#pragma once

#include <cstddef>

#include "screening/injection_text.h"
#include "text/json_view.h"

// Screens what the extension returns of a page, whose text anybody may have written. Nothing but
// known keys, to a depth of eight, is looked at. Threads: any, each with a document of its own.
namespace media::win::chrome_inspect {

// Looking ends once the texts, one a line, are longer than this; they may be so by the last one.
inline constexpr std::size_t maxGatheredText = 200000;

// A page, and the report of a batch inside it, whose "steps" and "model" count as the page's own
// where it has none; no report for other tools.
struct Page {
  JsonView root;
  JsonView report;

  // The member of the page, else of the report.
  JsonView own(std::string_view key) const;
};

// Judges the texts of a page. One that already carries a verdict keeps it. False, with `error` the
// JSON library's text, when "prompt_injection_detected" is there and no boolean.
bool judgePage(const Page& page, InjectionVerdict& verdict, std::string& error);

// Blanks the fields that alone are reason enough.
void blankInjectedFields(JsonDocument& document, const Page& page);

}  // namespace media::win::chrome_inspect
