#include "screening/page_screening.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

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

const json* memberOf(const json& object, const char* key) {
  const auto member = object.find(key);
  return member != object.end() ? &*member : nullptr;
}

const json* lentMember(const LentMembers& lent, std::string_view key) {
  const auto known = std::find(lent.keys.begin(), lent.keys.end(), key);
  return lent.object != nullptr && known != lent.keys.end() ? memberOf(*lent.object, *known)
                                                            : nullptr;
}

void gatherObject(const json& object, std::string& text, int depth, const LentMembers& lent = {}) {
  for (const char* key : textKeys) {
    const auto member = object.find(key);
    if (member != object.end() && member->is_string()) {
      appendLine(text, member->get_ref<const std::string&>());
    }
  }
  for (const char* key : containerKeys) {
    const json* member = memberOf(object, key);
    if (member == nullptr) member = lentMember(lent, key);
    if (member != nullptr) gatherPageText(*member, text, depth + 1);
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

}  // namespace

InjectionVerdict screenPageModel(const json& page, const LentMembers& lent) {
  if (carriesVerdict(page)) {
    return {std::string(lenientText(page, "prompt_injection_kind", "detected")),
            std::string(lenientText(page, "prompt_injection_reason",
                                    "prompt injection previously flagged")),
            true};
  }
  std::string text;
  if (page.is_object()) {
    gatherObject(page, text, 0, lent);
  } else {
    gatherPageText(page, text);
  }
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

}  // namespace media::win::chrome_inspect
