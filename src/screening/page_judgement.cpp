#include "screening/page_judgement.h"

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "screening/key_table.h"

namespace media::win::chrome_inspect {
namespace {

constexpr int maxDepth = 8;
constexpr std::string_view redaction = "[redacted: prompt-injection content removed]";

constexpr std::size_t textKeyCount = 16;
constexpr std::size_t steps = textKeyCount + 2;
constexpr std::size_t model = textKeyCount + 4;
// The keys of texts, then those of what is descended into; both are looked at in this order.
constexpr std::array<std::string_view, 27> lookedAt = {
    "pageText",    "name",       "text",        "title",       "value",     "label",
    "ariaLabel",   "aria-label", "placeholder", "message",     "error",     "note",
    "selector",    "doc",        "purpose",     "headingPath", "data",      "items",
    "steps",       "element",    "model",       "zones",       "zoneHints", "collectionItems",
    "rankedZones", "tabs",       "files"};
static_assert(lookedAt[steps] == "steps" && lookedAt[model] == "model");
constexpr KeyTable<lookedAt.size()> lookedAtTable(lookedAt);

constexpr std::array<std::string_view, 10> blanked = {"pageText", "name",        "text", "title",
                                                      "value",    "placeholder", "note", "doc",
                                                      "purpose",  "headingPath"};
constexpr KeyTable<blanked.size()> blankedTable(blanked);

using Members = std::array<JsonView, lookedAt.size()>;

Members membersOf(const Page& page) {
  Members members = lookedAtTable.membersOf(page.root);
  for (const std::size_t lent : {steps, model}) {
    if (!members[lent]) members[lent] = page.report[lookedAt[lent]];
  }
  return members;
}

class Gathering {
 public:
  void addPage(const Page& page) {
    if (page.root.isObject()) {
      addMembers(membersOf(page), 0);
    } else {
      add(page.root, 0);
    }
  }
  InjectionVerdict verdict() const { return injectionVerdict(found_); }

 private:
  void add(JsonView node, int depth) {
    if (depth > maxDepth || size_ > maxGatheredText) return;
    if (node.isString()) return addText(node.text());
    if (node.isObject()) return addMembers(lookedAtTable.membersOf(node), depth);
    for (const JsonView element : node.elements()) add(element, depth + 1);
  }

  void addMembers(const Members& members, int depth) {
    for (std::size_t i = 0; i < textKeyCount; ++i) addText(members[i].text());
    for (std::size_t i = textKeyCount; i < members.size(); ++i) {
      if (members[i]) add(members[i], depth + 1);
    }
  }

  // No phrase holds a line end, so each text is searched where it lies.
  void addText(std::string_view text) {
    if (text.empty()) return;
    size_ += text.size() + (size_ > 0 ? 1 : 0);
    found_ |= injectionGroups(text);
  }

  std::uint32_t found_ = 0;
  std::size_t size_ = 0;
};

class Blanking {
 public:
  explicit Blanking(JsonDocument& document) : document_(document) {}

  void blank(JsonView node, int depth) {
    if (depth > maxDepth) return;
    if (node.isObject()) return blankMembers(node, lookedAtTable.membersOf(node), depth);
    for (const JsonView element : node.elements()) blank(element, depth + 1);
  }

  void blankMembers(JsonView object, const Members& members, int depth) {
    for (const JsonView text : blankedTable.membersOf(object)) {
      if (classifyInjectionText(text.text()).detected) document_.replaceText(text, redaction);
    }
    for (std::size_t i = textKeyCount; i < members.size(); ++i) {
      if (members[i]) blank(members[i], depth + 1);
    }
  }

 private:
  JsonDocument& document_;
};

std::string textOr(JsonView view, std::string_view fallback) {
  return std::string(view.isString() ? view.text() : fallback);
}

}  // namespace

JsonView Page::own(std::string_view key) const {
  const JsonView member = root[key];
  return member ? member : report[key];
}

bool judgePage(const Page& page, InjectionVerdict& verdict, std::string& error) {
  const JsonView earlier = page.root["prompt_injection_detected"];
  if (earlier && !earlier.isTrue() && !earlier.isFalse()) {
    try {
      (void)earlier.toValue().get<bool>();
    } catch (const nlohmann::json::exception& failure) {
      error = failure.what();
    }
    return false;
  }
  if (earlier.isTrue()) {
    verdict = {textOr(page.root["prompt_injection_kind"], "detected"),
               textOr(page.root["prompt_injection_reason"], "prompt injection previously flagged"),
               true};
    return true;
  }
  Gathering gathering;
  gathering.addPage(page);
  verdict = gathering.verdict();
  return true;
}

void blankInjectedFields(JsonDocument& document, const Page& page) {
  Blanking blanking(document);
  if (page.root.isObject()) {
    blanking.blankMembers(page.root, membersOf(page), 0);
  } else {
    blanking.blank(page.root, 0);
  }
}

}  // namespace media::win::chrome_inspect
