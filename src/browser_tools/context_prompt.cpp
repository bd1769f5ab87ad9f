#include "browser_tools/context_prompt.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>

#include "browser_tools/browser_context.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::string_view windowSentence =
    "The browser for this turn is the user's Chrome window. browser_read, browser_find, "
    "browser_scope, browser_click, browser_type, browser_select, browser_batch, and "
    "browser_navigate act on that window. Do not claim the browser connection is unavailable.";

// What a reader may take for the end of a line, as UTF-8: the last three are U+0085, U+2028 and
// U+2029.
constexpr std::string_view lineEnds[] = {"\n",       "\r",           "\v",          "\f",
                                         "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"};

// Pages choose their titles; the note stays one line all the same.
std::string onOneLine(std::string_view text) {
  std::string line;
  for (std::size_t at = 0; at < text.size();) {
    const auto* end = std::ranges::find_if(
        lineEnds, [rest = text.substr(at)](auto lineEnd) { return rest.starts_with(lineEnd); });
    const bool isEnd = end != std::end(lineEnds);
    line += isEnd ? ' ' : text[at];
    at += isEnd ? end->size() : 1;
  }
  return line;
}

std::string tabNote(const json& tab) {
  return " [" + std::to_string(lenientInt64(tab, "id", 0)) + "] " +
         onOneLine(lenientText(tab, "title")) + " " + onOneLine(lenientText(tab, "url"));
}

}  // namespace

std::string browserContextPrompt() {
  const json context = browserContext();
  if (!context.is_object()) return "No Chrome tab is attached to this turn.";
  std::string note(windowSentence);
  const std::string_view url = lenientText(context, "currentUrl");
  if (url.empty()) return note + " No http(s) tab is active.";
  note += " Active tab (the page the user is looking at now): ";
  note += onOneLine(lenientText(context, "currentTitle")) + " " + onOneLine(url);
  note += " browser_read with no tab argument reads this tab, not an earlier one.";
  const json* tabs = findArray(context, "tabs");
  if (tabs == nullptr) return note;
  note += " Open tabs:";
  for (const json& tab : *tabs) {
    if (tab.is_object()) note += tabNote(tab);
  }
  return note;
}

}  // namespace media::win::chrome_inspect
