#pragma once

#include <string>

#include "text/json_view.h"

// What the agent gets of a browser tool's result: screened for injected instructions, then cut down
// to known keys and short lists, without page text. Read where it lies, written as text. Values of
// an unexpected shape pass through unchanged.
namespace media::win::chrome_inspect {

// Appends what the agent gets of the result `page`, an object of `document`, to `text`. A page that
// is flagged is changed in the document: fields that alone are reason enough are blanked. A
// navigation is screened, not cut down. `isFlagged`: whether it is, by us or by what came with it.
// False, and `text` untouched, with `error` the JSON library's text, when
// "prompt_injection_detected" is there and no boolean.
bool appendPageResult(JsonDocument& document, JsonView page, std::string& text, bool& isFlagged,
                      std::string& error);

}  // namespace media::win::chrome_inspect
