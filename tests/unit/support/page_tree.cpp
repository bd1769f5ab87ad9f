#include "support/page_tree.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "screening/injection_text.h"
#include "screening/page_judgement.h"
#include "text/ascii.h"
#include "text/json_read.h"
#include "text/utf8.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using Keys = std::initializer_list<const char*>;
using Shape = json (*)(const json& value);

// Of an object the members with these names; what is none as it is.
json only(const json& value, Keys keys) {
  if (!value.is_object()) return value;
  json kept = json::object();
  for (const char* key : keys) {
    if (value.contains(key)) kept[key] = value[key];
  }
  return kept;
}

void add(json& out, const json& from, const char* key, Shape shape) {
  if (from.contains(key)) out[key] = shape(from[key]);
}

json itemOf(const json& item) {
  return only(item, {"ref", "role", "name", "disabled", "checked", "type", "value"});
}
json elementOf(const json& element) { return only(element, {"role", "name", "value", "options"}); }
json zoneHintOf(const json& hint) {
  return only(hint, {"ref", "role", "name", "interactiveCount", "confidence", "roles"});
}
json scopeOf(const json& scope) { return only(scope, {"active", "ref", "name", "source"}); }
json fileOf(const json& file) { return only(file, {"kind", "url", "name"}); }

json firstOf(const json& list, std::size_t budget, Shape shape) {
  if (!list.is_array()) return list;
  json first = json::array();
  for (std::size_t i = 0; i < std::min(budget, list.size()); ++i) first.push_back(shape(list[i]));
  return first;
}

json zoneHintsOf(const json& hints) { return firstOf(hints, 2, zoneHintOf); }

json filesOf(const json& files) {
  json objects = files;
  if (files.is_array()) {
    std::erase_if(objects.get_ref<json::array_t&>(),
                  [](const json& file) { return !file.is_object(); });
  }
  return firstOf(objects, 8, fileOf);
}

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool isKeyItem(const json& item) {
  const std::string name = foldCase(lenientText(item, "name"));
  for (const char* action : {"save", "submit", "apply", "next", "continue"}) {
    if (name.find(action) != std::string::npos) return true;
  }
  return isOneOf(lenientText(item, "role"), {"textbox", "combobox", "checkbox", "radio",
                                             "searchbox", "spinbutton", "switch"}) ||
         isOneOf(lenientText(item, "type"), {"text", "email", "password", "search", "number"});
}

json readItemsOf(const json& items) {
  if (!items.is_array()) return items;
  json sorted = json::array();
  for (const bool isKey : {true, false}) {
    for (const json& item : items) {
      if (isKeyItem(item) == isKey) sorted.push_back(item);
    }
  }
  return firstOf(sorted, 12, itemOf);
}

void addItems(json& out, const json& data) {
  if (!data.contains("items")) return;
  const json& items = data["items"];
  out["items"] = data.contains("matchCount") ? firstOf(items, 8, itemOf) : readItemsOf(items);
  if (items.size() == out["items"].size()) return;
  out["truncated"] = true;
  out["itemsOmitted"] = items.size() - out["items"].size();
}

json pageData(const json& data, bool detailed) {
  if (!data.is_object()) return data;
  json out = only(data, {"count", "truncated", "pageTextOmitted", "ref", "role", "name", "value"});
  add(out, data, "scope", scopeOf);
  add(out, data, "files", filesOf);
  if (!detailed) {
    if (const json* items = findArray(data, "items")) out["itemsReturned"] = items->size();
    out["compacted"] = true;
    return out;
  }
  out.update(only(data, {"options", "matchCount"}));
  add(out, data, "element", elementOf);
  add(out, data, "zoneHints", zoneHintsOf);
  addItems(out, data);
  if (!lenientText(data, "pageText").empty()) out["pageTextOmitted"] = true;
  return out;
}

json detailedData(const json& data) { return pageData(data, true); }
json summaryOf(const json& data) { return pageData(data, false); }

// What an action or a step brought back is kept, but a page in it, however deep, only as a summary.
json outcomeOf(const json& data) {
  for (const char* key : {"items", "pageText", "zoneHints", "files"}) {
    if (data.contains(key)) return summaryOf(data);
  }
  json out = data;
  if (out.is_structured()) {
    for (json& member : out) member = outcomeOf(member);
  }
  return out;
}

json readResult(const json& result) {
  json out = result;
  add(out, result, "data", detailedData);
  add(out, result, "scope", scopeOf);
  out.erase("title");
  out.erase("pageText");  // belongs into the data; wherever it stands, it stays here
  return out;
}

json doneResult(const json& result) {
  json out = only(
      result, {"ok", "tool", "url", "epoch", "revision", "error", "title",
               "prompt_injection_detected", "prompt_injection_kind", "prompt_injection_reason"});
  out["compacted"] = true;
  return out;
}

json actionResult(const json& result) {
  json out = doneResult(result);
  out.update(only(result, {"action"}));
  add(out, result, "data", outcomeOf);
  add(out, result, "scope", scopeOf);
  return out;
}

json stepOf(const json& step) {
  json out =
      only(step, {"index", "action", "waited_ms", "auto", "note", "ok", "error", "code", "ref"});
  const std::string_view action = lenientText(step, "action");
  add(out, step, "data",
      action == "find"   ? detailedData
      : action == "read" ? summaryOf
                         : outcomeOf);
  return out;
}

json batchResult(const json& result) {
  json out = doneResult(result);
  out.update(only(result, {"all_ok", "first_failure", "batch_error", "steps"}));
  const json* const steps = findArray(result, "steps");
  if (steps == nullptr) return out;
  out["stepsReturned"] = steps->size();
  out["steps"] = out["actionTrail"] = json::array();
  for (const json& step : *steps) {
    out["steps"].push_back(stepOf(step));
    out["actionTrail"].push_back(lenientText(step, "action"));
  }
  return out;
}

std::string shortUrl(std::string url) {
  constexpr std::size_t maxUrlBytes = 120;
  constexpr std::size_t firstCutQuery = 33;  // before it, too little of the address would be left
  if (url.size() <= maxUrlBytes) return url;
  const std::size_t query = url.find('?');
  if (query != std::string::npos && query >= firstCutQuery) url.resize(query);
  if (url.size() <= maxUrlBytes) return url;
  return std::string(cutUtf8(url, maxUrlBytes)) + "...";
}

json compacted(json result) {
  if (result.contains("url") && result["url"].is_string()) result["url"] = shortUrl(result["url"]);
  const std::string_view tool = lenientText(result, "tool");
  if (isOneOf(tool, {"browser_read", "browser_find"})) return readResult(result);
  if (tool == "browser_batch") return batchResult(result);
  const bool isAction =
      isOneOf(tool, {"browser_click", "browser_type", "browser_select", "browser_scope"});
  return isAction ? actionResult(result) : result;
}

constexpr int maxDepth = 8;

constexpr Keys containerKeys = {"data",        "items", "steps",     "element",
                                "model",       "zones", "zoneHints", "collectionItems",
                                "rankedZones", "tabs",  "files"};

void gather(std::string_view line, std::string& text) {
  if (!text.empty() && !line.empty()) text += '\n';
  text += line;
}

void gatherPageText(const json& node, std::string& text, int depth = 0) {
  if (depth > maxDepth || text.size() > maxGatheredText) return;
  if (node.is_string()) gather(node.get_ref<const std::string&>(), text);
  if (node.is_array()) {
    for (const json& element : node) gatherPageText(element, text, depth + 1);
  }
  if (!node.is_object()) return;
  for (const char* key :
       {"pageText", "name", "text", "title", "value", "label", "ariaLabel", "aria-label",
        "placeholder", "message", "error", "note", "selector", "doc", "purpose", "headingPath"}) {
    gather(lenientText(node, key), text);
  }
  for (const char* key : containerKeys) {
    if (node.contains(key)) gatherPageText(node[key], text, depth + 1);
  }
}

void redactInjectedFields(json& node, int depth = 0) {
  if (depth > maxDepth) return;
  if (node.is_array()) {
    for (json& element : node) redactInjectedFields(element, depth + 1);
  }
  if (!node.is_object()) return;
  for (const char* key : {"pageText", "name", "text", "title", "value", "placeholder", "note",
                          "doc", "purpose", "headingPath"}) {
    if (!classifyInjectionText(lenientText(node, key)).detected) continue;
    node[key] = "[redacted: prompt-injection content removed]";
  }
  for (const char* key : containerKeys) {
    if (node.contains(key)) redactInjectedFields(node[key], depth + 1);
  }
}

InjectionVerdict verdictOn(const json& page) {
  if (page.value("prompt_injection_detected", false)) {
    return {std::string(lenientText(page, "prompt_injection_kind", "detected")),
            std::string(lenientText(page, "prompt_injection_reason",
                                    "prompt injection previously flagged")),
            true};
  }
  std::string text;
  gatherPageText(page, text);
  return classifyInjectionText(text);
}

void screen(json& page) {
  const InjectionVerdict verdict = verdictOn(page);
  if (!verdict.detected) return;
  redactInjectedFields(page);
  page["prompt_injection_detected"] = true;
  page["prompt_injection_kind"] = verdict.kind;
  page["prompt_injection_reason"] = verdict.reason;
  page["error"] = "Prompt injection detected in page content (" + verdict.reason +
                  "). Page text is untrusted \xE2\x80\x94 refusing to continue this turn. ";
}

// Copies to the result of a batch what its report has, where it has none of its own.
void hoist(json& page) {
  const json* const report = findObject(page, "data");
  if (lenientText(page, "tool") != "browser_batch" || report == nullptr) return;
  json whole = only(*report, {"steps", "all_ok", "model", "first_failure", "batch_error"});
  whole.update(page);
  page = whole;
}

}  // namespace

json pageResultByTree(json page) {
  hoist(page);
  screen(page);
  if (lenientText(page, "tool") == "browser_navigate") return page;
  json result = compacted(page);
  result.update(only(page, {"tabId", "code", "action", "tabs", "closed", "reused"}));
  return result;
}

}  // namespace media::win::chrome_inspect
