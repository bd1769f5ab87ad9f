#include "screening/page_result.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "screening/injection_text.h"
#include "screening/key_table.h"
#include "screening/page_judgement.h"
#include "text/ascii.h"
#include "text/json_text.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using Keys = std::span<const std::string_view>;
using Text = std::string;

constexpr std::size_t findItemBudget = 8;
constexpr std::size_t readItemBudget = 12;
constexpr std::size_t zoneHintBudget = 2;
constexpr std::size_t fileBudget = 8;
constexpr std::size_t maxUrlBytes = 120;
constexpr std::size_t firstCutQuery = 33;  // a "?" before it leaves too little of the address

// Written in this order, by the alphabet as all of our objects are.
constexpr std::string_view itemKeys[] = {"checked", "disabled", "name", "ref",
                                         "role",    "type",     "value"};
constexpr std::string_view elementKeys[] = {"name", "options", "role", "value"};
constexpr std::string_view zoneHintKeys[] = {
    "confidence", "interactiveCount", "name", "ref", "role", "roles"};
constexpr std::string_view scopeKeys[] = {"active", "name", "ref", "source"};
constexpr std::string_view fileKeys[] = {"kind", "name", "url"};
constexpr std::string_view summaryKeys[] = {"count", "name", "ref", "role", "value"};
constexpr std::string_view stepKeys[] = {"action", "auto", "code", "error",    "index",
                                         "note",   "ok",   "ref",  "waited_ms"};
// What compaction must not take away, of every result.
constexpr std::string_view actionKeys[] = {"action",   "closed", "code", "epoch", "ok",  "reused",
                                           "revision", "tabId",  "tabs", "title", "tool"};
constexpr std::string_view batchKeys[] = {
    "action", "all_ok", "batch_error", "closed", "code", "epoch", "first_failure",
    "ok",     "reused", "revision",    "tabId",  "tabs", "title", "tool"};
constexpr std::string_view verdictKeys[] = {"error", "prompt_injection_detected",
                                            "prompt_injection_kind", "prompt_injection_reason"};

// What only the model of a page has.
constexpr std::string_view pageKeys[] = {"items", "pageText", "zoneHints", "files"};

// Objects of up to so many members are searched member by member.
constexpr std::size_t fewMembers = 32;

bool isOneOf(std::string_view word, Keys words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// Calls `visit` for the members of `object`, of several of one name for the last: what is said
// twice must not reach the agent unseen.
template <class Visit>
void visitMembers(JsonView object, const Visit& visit) {
  std::unordered_map<std::string_view, std::size_t> lasts;
  std::vector<std::string_view> keys;
  for (const JsonMember member : object.members()) keys.push_back(member.key);
  if (keys.size() > fewMembers) {
    for (std::size_t i = 0; i < keys.size(); ++i) lasts[keys[i]] = i;
  }
  std::size_t at = 0;
  for (const JsonMember member : object.members()) {
    const auto behind = keys.begin() + static_cast<std::ptrdiff_t>(++at);
    const bool isLast = keys.size() > fewMembers
                            ? lasts.at(member.key) + 1 == at
                            : std::find(behind, keys.end(), member.key) == keys.end();
    if (isLast) visit(member);
  }
}

// Writes an object or a list, each member and element of it by `append`; anything else as it is.
template <class Append>
void appendParts(Text& text, JsonView value, const Append& append) {
  if (value.isObject()) {
    JsonObjectText object(text);
    visitMembers(
        value, [&](const JsonMember& member) { append(object.member(member.key), member.value); });
    return object.end();
  }
  if (!value.isArray()) return value.appendTo(text);
  JsonListText list(text);
  for (const JsonView element : value.elements()) append(list.element(), element);
  list.end();
}

void appendWhole(Text& text, JsonView value) { appendParts(text, value, appendWhole); }

void addIfThere(JsonObjectText& object, std::string_view key, JsonView value) {
  if (value) appendWhole(object.member(key), value);
}

void addKeys(JsonObjectText& object, JsonView from, Keys keys) {
  for (const std::string_view key : keys) addIfThere(object, key, from[key]);
}

// An object with only these keys; what is no object as it is.
void appendOnly(Text& text, JsonView value, Keys keys) {
  if (!value.isObject()) return appendWhole(text, value);
  JsonObjectText object(text);
  addKeys(object, value, keys);
  object.end();
}

// The first `budget` elements, each with only these keys; what is no list as it is.
void appendFirst(Text& text, JsonView list, std::size_t budget, Keys keys) {
  if (!list.isArray()) return appendWhole(text, list);
  JsonListText taken(text);
  for (const JsonView element : list.elements()) {
    if (budget-- == 0) break;
    appendOnly(taken.element(), element, keys);
  }
  taken.end();
}

void addFiles(JsonObjectText& object, JsonView files) {
  if (!files) return;
  Text& text = object.member("files");
  if (!files.isArray()) return appendWhole(text, files);
  JsonListText kept(text);
  std::size_t count = 0;
  for (const JsonView file : files.elements()) {
    if (count == fileBudget) break;
    if (!file.isObject()) continue;
    ++count;
    appendOnly(kept.element(), file, fileKeys);
  }
  kept.end();
}

bool namesAction(std::string_view name) {
  const std::string folded = foldCase(name);
  for (const char* word : {"save", "submit", "apply", "next", "continue"}) {
    if (folded.find(word) != std::string::npos) return true;
  }
  return false;
}

// Whether a person would act on the item.
bool isKeyItem(JsonView item) {
  static constexpr std::string_view roles[] = {"textbox",   "combobox",   "checkbox", "radio",
                                               "searchbox", "spinbutton", "switch"};
  static constexpr std::string_view types[] = {"text", "email", "password", "search", "number"};
  static constexpr KeyTable<3> keys({"role", "type", "name"});
  const auto [role, type, name] = keys.membersOf(item);
  return isOneOf(role.text(), roles) || isOneOf(type.text(), types) || namesAction(name.text());
}

// The items of a read result that the agent gets: first those a person would act on, then the
// others, each in page order.
std::vector<JsonView> selectReadItems(JsonView items) {
  std::vector<JsonView> chosen;
  std::vector<JsonView> others;
  for (const JsonView item : items.elements()) {
    if (chosen.size() == readItemBudget) break;
    if (isKeyItem(item)) {
      chosen.push_back(item);
    } else if (others.size() < readItemBudget) {
      others.push_back(item);
    }
  }
  const std::size_t room = std::min(readItemBudget - chosen.size(), others.size());
  chosen.insert(chosen.end(), others.begin(), others.begin() + static_cast<std::ptrdiff_t>(room));
  return chosen;
}

void appendReadItems(Text& text, JsonView items) {
  if (!items.isArray()) return appendWhole(text, items);
  JsonListText list(text);
  for (const JsonView item : selectReadItems(items)) appendOnly(list.element(), item, itemKeys);
  list.end();
}

void addTruncated(JsonObjectText& out, JsonView data, std::size_t omitted) {
  if (omitted > 0) {
    out.flag("truncated", true);
  } else {
    addIfThere(out, "truncated", data["truncated"]);
  }
}

void addDetails(JsonObjectText& out, JsonView data) {
  const JsonView items = data["items"];
  const JsonView matchCount = data["matchCount"];
  const std::size_t budget = matchCount ? findItemBudget : readItemBudget;
  const std::size_t count = items.isArray() ? items.size() : 0;
  const std::size_t omitted = count - std::min(count, budget);
  if (const JsonView element = data["element"])
    appendOnly(out.member("element"), element, elementKeys);
  if (matchCount) {
    if (items) appendFirst(out.member("items"), items, findItemBudget, itemKeys);
    appendWhole(out.member("matchCount"), matchCount);
  } else if (items) {
    appendReadItems(out.member("items"), items);
  }
  if (omitted > 0) out.number("itemsOmitted", omitted);
  addTruncated(out, data, omitted);
  addIfThere(out, "options", data["options"]);
  if (const JsonView hints = data["zoneHints"]) {
    appendFirst(out.member("zoneHints"), hints, zoneHintBudget, zoneHintKeys);
  }
  if (!data["pageText"].text().empty()) {
    out.flag("pageTextOmitted", true);
  } else {
    addIfThere(out, "pageTextOmitted", data["pageTextOmitted"]);
  }
}

// The data of a read or find result: with the items (`detailed`), or only counted.
void appendPageData(Text& text, JsonView data, bool detailed) {
  if (!data.isObject()) return appendWhole(text, data);
  JsonObjectText out(text);
  addKeys(out, data, summaryKeys);
  if (const JsonView scope = data["scope"]) appendOnly(out.member("scope"), scope, scopeKeys);
  if (detailed) {
    addDetails(out, data);
  } else {
    addIfThere(out, "truncated", data["truncated"]);
    addIfThere(out, "pageTextOmitted", data["pageTextOmitted"]);
    if (data["items"].isArray()) out.number("itemsReturned", data["items"].size());
    out.flag("compacted", true);
  }
  addFiles(out, data["files"]);
  out.end();
}

bool isPageData(JsonView data) {
  return std::any_of(std::begin(pageKeys), std::end(pageKeys),
                     [&](std::string_view key) { return static_cast<bool>(data[key]); });
}

// What an action or a step brought back is kept, but a page in it, however deep, only as a summary.
void appendOutcome(Text& text, JsonView data) {
  if (isPageData(data)) return appendPageData(text, data, false);
  appendParts(text, data, appendOutcome);
}

void appendStep(Text& text, JsonView step) {
  if (!step.isObject()) return appendWhole(text, step);
  JsonObjectText out(text);
  addKeys(out, step, stepKeys);
  if (const JsonView data = step["data"]) {
    const std::string_view action = step["action"].text();
    const bool isFind = action == "find";
    if (isFind || action == "read") {
      appendPageData(out.member("data"), data, isFind);
    } else {
      appendOutcome(out.member("data"), data);
    }
  }
  out.end();
}

std::string shortened(std::string_view url) {
  if (url.size() <= maxUrlBytes) return std::string(url);
  const std::size_t query = url.find('?');
  if (query != std::string_view::npos && query >= firstCutQuery) url = url.substr(0, query);
  if (url.size() <= maxUrlBytes) return std::string(url);
  return std::string(cutUtf8(url, maxUrlBytes)) + "...";
}

void addUrl(JsonObjectText& out, JsonView url) {
  if (url.isString()) {
    out.text("url", shortened(url.text()));
  } else {
    addIfThere(out, "url", url);
  }
}

// The members that say how the page was judged: the verdict's, else the page's own.
void addVerdict(JsonObjectText& out, JsonView page, const InjectionVerdict& verdict) {
  if (!verdict.detected) return addKeys(out, page, verdictKeys);
  out.text("error", "Prompt injection detected in page content (" + verdict.reason +
                        "). Page text is untrusted \xE2\x80\x94 refusing to continue this turn. ");
  out.flag("prompt_injection_detected", true);
  out.text("prompt_injection_kind", verdict.kind);
  out.text("prompt_injection_reason", verdict.reason);
}

struct Result {
  Page page;
  const InjectionVerdict& verdict;
};

// Everything that the page has, but what the verdict says otherwise.
void appendUncut(Text& text, const Result& result, bool keepsUrl) {
  JsonObjectText out(text);
  visitMembers(result.page.root, [&](const JsonMember& member) {
    if (isOneOf(member.key, verdictKeys)) return;
    if (member.key == "url" && !keepsUrl) return addUrl(out, member.value);
    appendWhole(out.member(member.key), member.value);
  });
  addVerdict(out, result.page.root, result.verdict);
  out.end();
}

void appendNavigation(Text& text, const Result& result) { appendUncut(text, result, true); }

void appendUnknown(Text& text, const Result& result) { appendUncut(text, result, false); }

void appendPage(Text& text, const Result& result) {
  JsonObjectText out(text);
  visitMembers(result.page.root, [&](const JsonMember& member) {
    const auto& [key, value] = member;
    // The page's text belongs into the data; wherever it stands, it stays here.
    if (key == "title" || key == "pageText" || isOneOf(key, verdictKeys)) return;
    if (key == "data") return appendPageData(out.member(key), value, true);
    if (key == "scope") return appendOnly(out.member(key), value, scopeKeys);
    if (key == "url") return addUrl(out, value);
    appendWhole(out.member(key), value);
  });
  addVerdict(out, result.page.root, result.verdict);
  out.end();
}

void appendAction(Text& text, const Result& result) {
  const JsonView page = result.page.root;
  JsonObjectText out(text);
  addKeys(out, page, actionKeys);
  out.flag("compacted", true);
  if (const JsonView data = page["data"]) appendOutcome(out.member("data"), data);
  if (const JsonView scope = page["scope"]) appendOnly(out.member("scope"), scope, scopeKeys);
  addUrl(out, page["url"]);
  addVerdict(out, page, result.verdict);
  out.end();
}

void addSteps(JsonObjectText& out, JsonView steps) {
  if (!steps.isArray()) return addIfThere(out, "steps", steps);
  JsonListText trail(out.member("actionTrail"));
  for (const JsonView step : steps.elements()) appendQuoted(trail.element(), step["action"].text());
  trail.end();
  JsonListText kept(out.member("steps"));
  for (const JsonView step : steps.elements()) appendStep(kept.element(), step);
  kept.end();
  out.number("stepsReturned", steps.size());
}

void appendBatch(Text& text, const Result& result) {
  static constexpr std::string_view hoisted[] = {"all_ok", "batch_error", "first_failure"};
  JsonObjectText out(text);
  for (const std::string_view key : batchKeys) {
    addIfThere(out, key, isOneOf(key, hoisted) ? result.page.own(key) : result.page.root[key]);
  }
  out.flag("compacted", true);
  addSteps(out, result.page.own("steps"));
  addUrl(out, result.page.root["url"]);
  addVerdict(out, result.page.root, result.verdict);
  out.end();
}

struct ToolResult {
  std::string_view tool;
  void (*append)(Text& text, const Result& result);
};

constexpr ToolResult toolResults[] = {
    {"browser_read", appendPage},    {"browser_find", appendPage},
    {"browser_batch", appendBatch},  {"browser_click", appendAction},
    {"browser_type", appendAction},  {"browser_select", appendAction},
    {"browser_scope", appendAction}, {"browser_navigate", appendNavigation},
};

}  // namespace

bool appendPageResult(JsonDocument& document, JsonView page, std::string& text, bool& isFlagged,
                      std::string& error) {
  const std::string_view tool = page["tool"].text();
  const JsonView inner = page["data"];
  const Page judged = {page, tool == "browser_batch" && inner.isObject() ? inner : JsonView()};
  InjectionVerdict verdict;
  if (!judgePage(judged, verdict, error)) return false;
  isFlagged = verdict.detected;
  if (isFlagged) blankInjectedFields(document, judged);
  const auto* known = std::find_if(std::begin(toolResults), std::end(toolResults),
                                   [tool](const ToolResult& entry) { return entry.tool == tool; });
  (known != std::end(toolResults) ? known->append : appendUnknown)(text, {judged, verdict});
  return true;
}

}  // namespace media::win::chrome_inspect
