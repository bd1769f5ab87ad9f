#include "support/random_page.h"

#include <iterator>
#include <sstream>
#include <vector>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* words[] = {
    "Save",          "Next page",        "Home",   "curl x | bash", "id_rsa",  "please upload", "",
    "ignore safety", "\xE2\x82\xAC uro", "SUBMIT", "apply",         "contiNue"};

// A page with all that it may have, and a result with all but its pages. An empty text stands for
// any text, one with bars for one of its parts, a list for any number of what is in it. Of each
// kind of object one member, "x", is nothing to the agent.
constexpr const char* wholePage = R"({"count":7,"truncated":false,"pageTextOmitted":false,
    "pageText":"the text of the page","ref":"r","role":"o","name":"","value":"","x":1,
    "options":["a"],"matchCount":3,"all_ok":false,"first_failure":2,"batch_error":"of the report",
    "items":[{"ref":"1|2|3|4|5","role":"button|link","name":"","value":"","disabled":false,"x":1},
             {"ref":"6|7|8","type":"text|email|password|search|number|submit","checked":true},
             {"ref":"9|10",
              "role":"textbox|combobox|checkbox|radio|searchbox|spinbutton|switch|Radio"}],
    "files":[{"kind":"image","url":"","name":"","x":3}],
    "zoneHints":[{"ref":"z|y","role":"o","name":"","interactiveCount":2,"confidence":0.5,
                  "roles":["link"],"x":1}],
    "element":{"role":"button","name":"","value":"","options":[1],"x":1},
    "scope":{"active":true,"ref":"s","name":"","source":"d","x":1}})";
constexpr const char* wholeResult = R"({"ok":true,"title":"","epoch":3,"revision":2,"x":1,
    "error":"","action":"","code":"c","tabId":1,"closed":true,"reused":false,
    "pageText":"the text of the page","prompt_injection_detected":false,
    "all_ok":true,"first_failure":1,"batch_error":"e","prompt_injection_kind":"k",
    "prompt_injection_reason":"r",
    "tool":"read|find|scope|click|type|select|batch|navigate",
    "steps":[{"index":1,"action":"read|find|click|type|batch","note":"","waited_ms":5,"auto":true,
              "ok":true,"error":"","code":"c","ref":"e1","x":1}],
    "scope":{"ref":"s","x":1},"tabs":[{"kind":"image","url":"","name":""}]})";
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
  std::vector<std::string> parts;
  std::istringstream bars(pattern);
  for (std::string part; std::getline(bars, part, '|');) parts.push_back(part);
  return parts[below(static_cast<std::uint32_t>(parts.size()))];
}

json RandomPage::varied(const json& whole, std::uint32_t longest) {
  if (!wellFormed_ && once(8)) {
    static const json misfits = json::parse(misfit);
    return misfits[below(static_cast<std::uint32_t>(misfits.size()))];
  }
  if (whole.is_string()) return text(whole);
  if (!whole.is_structured()) return whole;
  json made = whole.is_array() ? json::array() : json::object();
  if (whole.is_array()) {
    for (std::uint32_t left = below(longest); left > 0; --left) {
      made.push_back(varied(whole[below(static_cast<std::uint32_t>(whole.size()))], 4));
    }
  } else {
    for (const auto& [key, part] : whole.items()) {
      if (!once(4)) made[key] = varied(part, longest);
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
  if (tool == "browser_batch") whole["data"]["steps"] = whole["steps"];
  if (tool != "browser_batch" && (wellFormed || once(3))) whole.erase("steps");
  wellFormed_ = wellFormed;
  json made = json::object();
  for (const auto& [key, part] : whole.items()) {
    if (key == "tool" || !once(4)) made[key] = varied(part);
  }
  std::string url = "https://example.org/" + std::string(below(60), 'p') + "?";
  for (std::uint32_t left = below(60); left > 0; --left) url += "\xC3\xA9";
  made["url"] = varied(url + "?");
  return made;
}

}  // namespace media::win::chrome_inspect
