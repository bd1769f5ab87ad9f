#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

#include "screening/injection_text.h"

// Screens what the extension returns of a page, whose text anybody may have written, before the
// agent sees it. Pure functions; nothing but known keys, to a depth of eight, is looked at.
namespace media::win::chrome_inspect {

// Gathering ends once the text is longer than this; it may be so by the last field.
inline constexpr std::size_t maxGatheredText = 200000;

// Members that a page is judged with as if it had them itself, where it has none of that name.
struct LentMembers {
  const nlohmann::json* object = nullptr;  // that has them; may be a part of the page
  std::span<const char* const> keys;
};

// Judges a page. One that already carries a verdict keeps it. Throws nlohmann::json::type_error
// when "prompt_injection_detected" is there and no boolean.
InjectionVerdict screenPageModel(const nlohmann::json& page, const LentMembers& lent = {});

// Blanks the fields of `page` that alone are reason enough, and writes the verdict into it together
// with an error that asks the agent to stop.
void markPageModelFlagged(nlohmann::json& page, const InjectionVerdict& verdict);

// The two walks: collecting the text, one field a line, and blanking fields.
void gatherPageText(const nlohmann::json& node, std::string& text, int depth = 0);
void redactInjectedFields(nlohmann::json& node, int depth = 0);

}  // namespace media::win::chrome_inspect
