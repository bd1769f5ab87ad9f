#include "support/page_tree.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "screening/injection_text.h"
#include "screening/page_judgement.h"
#include "text/ascii.h"
#include "text/json_read.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using Keys = std::span<const char* const>;

json compactPageData(json data, bool detailed);
json selectReadItems(json items, std::size_t budget);
bool isKeyItem(const json& item);
json compactItem(json item);
json summarizeScope(json scope);
json compactZoneHint(json hint);
json compactActionResult(json result);
json compactBatchResult(json result);
void gatherPageText(const json& node, std::string& text, int depth = 0);
void redactInjectedFields(json& node, int depth = 0);

constexpr std::size_t findItemBudget = 8;
constexpr std::size_t readItemBudget = 12;
constexpr std::size_t zoneHintBudget = 2;
constexpr std::size_t fileBudget = 8;
constexpr std::size_t maxUrlBytes = 120;
constexpr std::size_t firstCutQuery = 33;  // a "?" before it leaves too little of the address

constexpr const char* itemKeys[] = {"ref", "role", "name", "disabled", "checked", "type", "value"};
constexpr const char* elementKeys[] = {"role", "name", "value", "options"};
constexpr const char* zoneHintKeys[] = {"ref",        "role", "name", "interactiveCount",
                                        "confidence", "roles"};
constexpr const char* scopeKeys[] = {"active", "ref", "name", "source"};
constexpr const char* fileKeys[] = {"kind", "url", "name"};
constexpr const char* summaryKeys[] = {"count", "truncated", "pageTextOmitted", "ref", "role",
                                       "name",  "value"};
// What only the model of a page has.
constexpr const char* pageKeys[] = {"items", "pageText", "zoneHints", "files"};
constexpr const char* detailKeys[] = {"options", "matchCount"};
constexpr const char* actionResultKeys[] = {"ok",
                                            "tool",
                                            "url",
                                            "epoch",
                                            "revision",
                                            "prompt_injection_detected",
                                            "error",
                                            "title",
                                            "action",
                                            "prompt_injection_kind",
                                            "prompt_injection_reason"};
constexpr const char* batchResultKeys[] = {"ok",
                                           "tool",
                                           "url",
                                           "epoch",
                                           "revision",
                                           "prompt_injection_detected",
                                           "error",
                                           "all_ok",
                                           "first_failure",
                                           "title",
                                           "batch_error",
                                           "prompt_injection_kind",
                                           "prompt_injection_reason"};
constexpr const char* stepKeys[] = {"index", "action", "waited_ms", "auto", "note",
                                    "ok",    "error",  "code",      "ref"};

void moveKeys(json& from, Keys keys, json& to) {
  for (const char* key : keys) {
    const auto member = from.find(key);
    if (member != from.end()) to[key] = std::move(*member);
  }
}

json onlyKeys(json value, Keys keys) {
  if (!value.is_object()) return value;
  json kept = json::object();
  moveKeys(value, keys, kept);
  return kept;
}

// The first `budget` elements, each through `compact`; what is no list as it is.
json firstOf(json list, std::size_t budget, json (*compact)(json)) {
  if (!list.is_array()) return list;
  json taken = json::array();
  for (std::size_t i = 0; i < std::min(budget, list.size()); ++i) {
    taken.push_back(compact(std::move(list[i])));
  }
  return taken;
}

json firstFiles(json files) {
  if (!files.is_array()) return files;
  json kept = json::array();
  for (json& file : files) {
    if (kept.size() == fileBudget) break;
    if (file.is_object()) kept.push_back(onlyKeys(std::move(file), fileKeys));
  }
  return kept;
}

void compactFiles(json& data, json& out) {
  const auto files = data.find("files");
  if (files != data.end()) out["files"] = firstFiles(std::move(*files));
}

// `out` has the keys of `data` that come before its items.
void compactItems(json& data, json& out) {
  const auto items = data.find("items");
  if (items == data.end()) return;
  const std::size_t count = items->size();
  json taken = out.contains("matchCount") ? firstOf(std::move(*items), findItemBudget, compactItem)
                                          : selectReadItems(std::move(*items), readItemBudget);
  if (taken.is_array() && count > taken.size()) {
    out["truncated"] = true;
    out["itemsOmitted"] = count - taken.size();
  }
  out["items"] = std::move(taken);
}

void compactDetails(json& data, json& out) {
  moveKeys(data, detailKeys, out);
  const auto element = data.find("element");
  if (element != data.end()) out["element"] = onlyKeys(std::move(*element), elementKeys);
  compactItems(data, out);
  const auto hints = data.find("zoneHints");
  if (hints != data.end()) {
    out["zoneHints"] = firstOf(std::move(*hints), zoneHintBudget, compactZoneHint);
  }
  if (!lenientText(data, "pageText").empty()) out["pageTextOmitted"] = true;
}

void shortenUrl(json& result) {
  const auto member = result.find("url");
  if (member == result.end() || !member->is_string()) return;
  auto& url = member->get_ref<std::string&>();
  if (url.size() <= maxUrlBytes) return;
  const std::size_t query = url.find('?');
  if (query != std::string::npos && query >= firstCutQuery) url.resize(query);
  if (url.size() <= maxUrlBytes) return;
  url.resize(cutUtf8(url, maxUrlBytes).size());
  url += "...";
}

bool isPageData(const json& data) {
  return data.is_object() && std::any_of(std::begin(pageKeys), std::end(pageKeys),
                                         [&](const char* key) { return data.contains(key); });
}

// What an action or a step brought back is kept, but a page in it, however deep, only as a summary.
json compactOutcome(json data) {
  if (isPageData(data)) return compactPageData(std::move(data), false);
  if (data.is_structured()) {
    for (json& member : data) member = compactOutcome(std::move(member));
  }
  return data;
}

json compactStep(json step) {
  if (!step.is_object()) return step;
  json kept = json::object();
  moveKeys(step, stepKeys, kept);
  const auto data = step.find("data");
  if (data == step.end()) return kept;
  const std::string_view action = lenientText(kept, "action");
  const bool isFind = action == "find";
  kept["data"] = isFind || action == "read" ? compactPageData(std::move(*data), isFind)
                                            : compactOutcome(std::move(*data));
  return kept;
}

json compactPageResult(json result) {
  const auto data = result.find("data");
  if (data != result.end()) *data = compactPageData(std::move(*data), true);
  const auto scope = result.find("scope");
  if (scope != result.end()) *scope = summarizeScope(std::move(*scope));
  result.erase("title");
  result.erase("pageText");  // belongs into the data; wherever it stands, it stays here
  return result;
}

struct ToolResult {
  std::string_view tool;
  json (*compact)(json result);
};

constexpr ToolResult toolResults[] = {
    {"browser_read", compactPageResult},    {"browser_find", compactPageResult},
    {"browser_batch", compactBatchResult},  {"browser_click", compactActionResult},
    {"browser_type", compactActionResult},  {"browser_select", compactActionResult},
    {"browser_scope", compactActionResult}, {"browser_navigate", compactActionResult},
};

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool namesAction(std::string_view name) {
  const std::string folded = foldCase(name);
  for (const char* word : {"save", "submit", "apply", "next", "continue"}) {
    if (folded.find(word) != std::string::npos) return true;
  }
  return false;
}

json compactBrowserResult(json result) {
  if (!result.is_object()) return result;
  shortenUrl(result);
  const std::string tool(lenientText(result, "tool"));
  const auto* known = std::find_if(std::begin(toolResults), std::end(toolResults),
                                   [&tool](const ToolResult& entry) { return entry.tool == tool; });
  return known != std::end(toolResults) ? known->compact(std::move(result)) : result;
}

json compactPageData(json data, bool detailed) {
  if (!data.is_object()) return data;
  json out = json::object();
  moveKeys(data, summaryKeys, out);
  const auto scope = data.find("scope");
  if (scope != data.end()) out["scope"] = summarizeScope(std::move(*scope));
  if (detailed) {
    compactDetails(data, out);
  } else {
    if (const json* items = findArray(data, "items")) out["itemsReturned"] = items->size();
    out["compacted"] = true;
  }
  compactFiles(data, out);
  return out;
}

json selectReadItems(json items, std::size_t budget) {
  if (!items.is_array()) return items;
  std::vector<json*> chosen;
  for (const bool wanted : {true, false}) {
    for (json& item : items) {
      if (chosen.size() < budget && isKeyItem(item) == wanted) chosen.push_back(&item);
    }
  }
  json taken = json::array();
  for (json* item : chosen) taken.push_back(compactItem(std::move(*item)));
  return taken;
}

bool isKeyItem(const json& item) {
  return item.is_object() &&
         (isOneOf(lenientText(item, "role"), {"textbox", "combobox", "checkbox", "radio",
                                              "searchbox", "spinbutton", "switch"}) ||
          isOneOf(lenientText(item, "type"), {"text", "email", "password", "search", "number"}) ||
          namesAction(lenientText(item, "name")));
}

json compactItem(json item) { return onlyKeys(std::move(item), itemKeys); }

json summarizeScope(json scope) { return onlyKeys(std::move(scope), scopeKeys); }

json compactZoneHint(json hint) { return onlyKeys(std::move(hint), zoneHintKeys); }

json compactActionResult(json result) {
  json out = json::object();
  moveKeys(result, actionResultKeys, out);
  const auto data = result.find("data");
  if (data != result.end()) out["data"] = compactOutcome(std::move(*data));
  const auto scope = result.find("scope");
  if (scope != result.end()) out["scope"] = summarizeScope(std::move(*scope));
  out["compacted"] = true;
  return out;
}

json compactBatchResult(json result) {
  json out = json::object();
  moveKeys(result, batchResultKeys, out);
  out["compacted"] = true;
  const auto steps = result.find("steps");
  if (steps == result.end()) return out;
  if (!steps->is_array()) {
    out["steps"] = std::move(*steps);
    return out;
  }
  json kept = json::array();
  json trail = json::array();
  for (json& step : *steps) {
    trail.push_back(lenientText(step, "action"));
    kept.push_back(compactStep(std::move(step)));
  }
  out["stepsReturned"] = kept.size();
  out["actionTrail"] = std::move(trail);
  out["steps"] = std::move(kept);
  return out;
}

constexpr int maxDepth = 8;

constexpr std::array<const char*, 16> textKeys = {
    "pageText",    "name",    "text",  "title", "value",    "label", "ariaLabel", "aria-label",
    "placeholder", "message", "error", "note",  "selector", "doc",   "purpose",   "headingPath"};

constexpr std::array<const char*, 10> redactedKeys = {"pageText", "name",        "text", "title",
                                                      "value",    "placeholder", "note", "doc",
                                                      "purpose",  "headingPath"};

constexpr std::array<const char*, 11> containerKeys = {
    "data",      "items",           "steps",       "element", "model", "zones",
    "zoneHints", "collectionItems", "rankedZones", "tabs",    "files"};

constexpr const char* redaction = "[redacted: prompt-injection content removed]";

void appendLine(std::string& text, const std::string& line) {
  if (line.empty()) return;
  if (!text.empty()) text += '\n';
  text += line;
}

void gatherObject(const json& object, std::string& text, int depth) {
  for (const char* key : textKeys) {
    const auto member = object.find(key);
    if (member != object.end() && member->is_string()) {
      appendLine(text, member->get_ref<const std::string&>());
    }
  }
  for (const char* key : containerKeys) {
    const auto member = object.find(key);
    if (member != object.end()) gatherPageText(*member, text, depth + 1);
  }
}

void redactObject(json& object, int depth) {
  for (const char* key : redactedKeys) {
    const auto member = object.find(key);
    if (member == object.end() || !member->is_string()) continue;
    if (classifyInjectionText(member->get_ref<const std::string&>()).detected) *member = redaction;
  }
  for (const char* key : containerKeys) {
    const auto member = object.find(key);
    if (member != object.end()) redactInjectedFields(*member, depth + 1);
  }
}

bool carriesVerdict(const json& page) {
  if (!page.is_object()) return false;
  const auto flag = page.find("prompt_injection_detected");
  return flag != page.end() && flag->get<bool>();
}

InjectionVerdict screenPageModel(const json& page) {
  if (carriesVerdict(page)) {
    return {std::string(lenientText(page, "prompt_injection_kind", "detected")),
            std::string(lenientText(page, "prompt_injection_reason",
                                    "prompt injection previously flagged")),
            true};
  }
  std::string text;
  gatherPageText(page, text);
  return classifyInjectionText(text);
}

void markPageModelFlagged(json& page, const InjectionVerdict& verdict) {
  if (!page.is_object()) page = json::object();
  redactInjectedFields(page);
  page["prompt_injection_detected"] = true;
  page["prompt_injection_kind"] = verdict.kind;
  page["prompt_injection_reason"] = verdict.reason;
  page["error"] = "Prompt injection detected in page content (" + verdict.reason +
                  "). Page text is untrusted \xE2\x80\x94 refusing to continue this turn. ";
}

void gatherPageText(const json& node, std::string& text, int depth) {
  if (depth > maxDepth || text.size() > maxGatheredText) return;
  if (node.is_string()) {
    appendLine(text, node.get_ref<const std::string&>());
  } else if (node.is_object()) {
    gatherObject(node, text, depth);
  } else if (node.is_array()) {
    for (const json& element : node) gatherPageText(element, text, depth + 1);
  }
}

void redactInjectedFields(json& node, int depth) {
  if (depth > maxDepth) return;
  if (node.is_object()) {
    redactObject(node, depth);
  } else if (node.is_array()) {
    for (json& element : node) redactInjectedFields(element, depth + 1);
  }
}

// Copies to the result of a batch what its report has, where it has none of its own.
void hoist(json& page) {
  static constexpr const char* hoisted[] = {"steps", "all_ok", "model", "first_failure",
                                            "batch_error"};
  if (lenientText(page, "tool") != "browser_batch") return;
  const json* const report = findObject(page, "data");
  if (report == nullptr) return;
  const json from = *report;
  for (const char* key : hoisted) {
    if (from.contains(key) && !page.contains(key)) page[key] = from[key];
  }
}

}  // namespace

json pageResultByTree(json page) {
  static constexpr const char* kept[] = {"tabId", "code", "action", "tabs", "closed", "reused"};
  hoist(page);
  const InjectionVerdict verdict = screenPageModel(page);
  if (verdict.detected) markPageModelFlagged(page, verdict);
  if (lenientText(page, "tool") == "browser_navigate") return page;
  json compacted = compactBrowserResult(page);
  moveKeys(page, kept, compacted);
  return compacted;
}

}  // namespace media::win::chrome_inspect
