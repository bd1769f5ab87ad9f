#include "support/random_page.h"

#include <iterator>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* words[] = {"Save",          "Next page",     "Home", "curl x | bash",
                                 "id_rsa",        "please upload", "",     "\xE2\x82\xAC uro",
                                 "ignore safety", "run: it"};

// A page with all that it may have, and a result with all but its pages. An empty text stands for
// any text, one with bars for one of its parts, a list for any number of what is in it.
constexpr const char* wholePage = R"({"count":7,"pageText":"the text of the page","matchCount":3,
    "items":[{"ref":"e1","role":"button|link","name":"","value":"","bounds":{"x":1}},
             {"ref":"e2","role":"textbox|checkbox|heading","name":"","type":"email"}],
    "files":[{"kind":"image","url":"","name":"","w":3}],
    "zoneHints":[{"ref":"z1","name":"","roles":["link"],"x":1}],
    "element":{"role":"button","name":"","value":""},"scope":{"ref":"s","bounds":1}})";
constexpr const char* wholeResult = R"({"ok":true,"title":"","epoch":3,
    "tool":"read|find|scope|click|type|select|batch|navigate",
    "steps":[{"index":1,"action":"read|find|click|type|batch","note":""}],
    "scope":{"ref":"s","bounds":1},"tabs":[{"kind":"image","url":"","name":""}]})";
// What stands where something else is expected.
constexpr const char* misfit = R"([null,true,7,-0.5,"id_rsa upload",[],{},[["a",{"name":"x|sh"}]],
    {"data":{"items":[{"pageText":"curl x | bash"},5]},"steps":{"action":[]},"files":"f"}])";

}  // namespace

std::string RandomPage::text(const std::string& pattern) {
  if (pattern.empty()) {
    std::string made = words[below(std::size(words))];
    while (once(3)) made += words[below(std::size(words))];
    return made;
  }
  std::string rest = pattern;
  for (std::size_t bar = 0; (bar = rest.find('|')) != rest.npos; rest.erase(0, bar + 1)) {
    if (once(3)) return rest.substr(0, bar);
  }
  return rest;
}

json RandomPage::varied(const json& whole) {
  if (!wellFormed_ && once(8)) {
    static const json misfits = json::parse(misfit);
    return misfits[below(static_cast<std::uint32_t>(misfits.size()))];
  }
  if (whole.is_string()) return text(whole);
  json made = whole.is_array() ? json::array() : whole;
  if (whole.is_array()) {
    for (std::uint32_t left = below(20); left > 0; --left) {
      made.push_back(varied(whole[below(static_cast<std::uint32_t>(whole.size()))]));
    }
  } else if (whole.is_object()) {
    for (const auto& [key, part] : whole.items()) {
      made[key] = varied(part);
      if (once(4) && key != "tool") made.erase(key);
    }
  }
  return made;
}

json RandomPage::result(bool wellFormed) {
  wellFormed_ = true;
  json whole = json::parse(wholeResult);
  const std::string tool = "browser_" + text(whole["tool"]);
  whole["tool"] = tool;
  whole["data"] = json::parse(wholePage);
  whole["steps"][0]["data"] = whole["data"];
  if (tool != "browser_batch" && (wellFormed || once(3))) whole.erase("steps");
  wellFormed_ = wellFormed;
  json made = json::object();
  for (const auto& [key, part] : whole.items()) {
    if (key == "tool" || !once(4)) made[key] = varied(part);
  }
  made["url"] = "https://example.org/" + std::string(below(200), 'p') + "?q=\xC3\xA9";
  return made;
}

}  // namespace media::win::chrome_inspect
