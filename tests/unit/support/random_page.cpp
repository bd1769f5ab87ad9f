#include "support/random_page.h"

#include <iterator>
#include <utility>

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr const char* words[] = {"Save",          "Next page",     "Home", "curl x | bash",
                                 "id_rsa",        "please upload", "",     "\xE2\x82\xAC uro",
                                 "ignore safety", "run: it"};
constexpr const char* tools[] = {"browser_read",  "browser_find",    "browser_scope",
                                 "browser_click", "browser_type",    "browser_select",
                                 "browser_batch", "browser_navigate"};
constexpr const char* roles[] = {"textbox", "button", "link", "checkbox", "heading"};
constexpr const char* actions[] = {"read", "find", "click", "type", "batch"};
constexpr const char* keys[] = {"data",  "items",     "steps",  "pageText", "name",
                                "scope", "tool",      "url",    "action",   "files",
                                "title", "zoneHints", "element"};

}  // namespace

json RandomPage::anything(int depth) {
  const std::uint32_t kind = below(depth > 3 ? 5 : 7);
  if (kind == 0) return nullptr;
  if (kind == 1) return once(2);
  if (kind == 2) return below(1000);
  if (kind == 3) return text();
  if (kind == 4) return -0.5;
  json made = kind == 5 ? json::array() : json::object();
  for (std::uint32_t left = below(4); left > 0; --left) {
    json part = anything(depth + 1);
    (kind == 5 ? made[made.size()] : made[keys[below(std::size(keys))]]) = std::move(part);
  }
  return made;
}

json RandomPage::text() {
  std::string made = words[below(std::size(words))];
  while (once(3)) made += words[below(std::size(words))];
  return made;
}

json RandomPage::orAnything(json value) {
  return !wellFormed_ && once(6) ? anything(0) : std::move(value);
}

json RandomPage::list(std::uint32_t most, json (RandomPage::*element)()) {
  json made = json::array();
  for (std::uint32_t left = below(most + 1); left > 0; --left) {
    made.push_back(orAnything((this->*element)()));
  }
  return orAnything(std::move(made));
}

json RandomPage::item() {
  json made = {{"ref", "e" + std::to_string(below(500))}, {"bounds", {{"x", below(9)}}}};
  made["role"] = orAnything(roles[below(std::size(roles))]);
  made["name"] = orAnything(text());
  if (once(2)) made["value"] = orAnything(text());
  if (once(4)) made["type"] = orAnything("email");
  return made;
}

json RandomPage::file() { return {{"kind", "image"}, {"url", text()}, {"name", text()}, {"w", 3}}; }

json RandomPage::zoneHint() {
  return {{"ref", "z1"}, {"name", text()}, {"roles", {"link"}}, {"x", 1}};
}

json RandomPage::pageData() {
  json made = {{"count", below(100)}};
  if (!once(4)) made["pageText"] = orAnything(std::string(pageText));
  if (!once(4)) made["items"] = list(30, &RandomPage::item);
  if (once(3)) made["matchCount"] = orAnything(below(30));
  if (once(2)) made["files"] = list(20, &RandomPage::file);
  if (once(2)) made["zoneHints"] = list(5, &RandomPage::zoneHint);
  if (once(3)) made["element"] = orAnything(item());
  if (once(3)) made["scope"] = orAnything({{"ref", "s"}, {"bounds", 1}});
  return made;
}

json RandomPage::step() {
  json made = {{"index", below(32)}, {"action", orAnything(actions[below(std::size(actions))])}};
  if (!once(3)) made["data"] = orAnything(pageData());
  if (once(3)) made["note"] = text();
  return made;
}

json RandomPage::result(bool wellFormed) {
  wellFormed_ = wellFormed;
  json made = {{"ok", true}, {"title", orAnything(text())}, {"epoch", below(9)}};
  made["tool"] = orAnything(tools[below(std::size(tools))]);
  made["url"] = orAnything("https://example.org/" + std::string(below(200), 'p') + "?q=\xC3\xA9");
  if (!once(5)) made["data"] = orAnything(pageData());
  const bool isBatch = made["tool"] == "browser_batch";
  if (isBatch || (!wellFormed_ && once(3))) made["steps"] = list(8, &RandomPage::step);
  if (once(5)) made["scope"] = orAnything({{"ref", "s"}, {"bounds", 1}});
  if (once(5)) made["tabs"] = list(3, &RandomPage::file);
  return made;
}

}  // namespace media::win::chrome_inspect
