#include "browser_tools/step_checks.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>

#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr int maxBatchDepth = 4;
constexpr std::size_t maxBatchSteps = 32;

constexpr std::array<std::string_view, 6> stepActions = {"read", "find",   "click",
                                                         "type", "select", "wait"};
constexpr std::array<std::string_view, 7> navigateActions = {"tabs",   "new",  "switch", "close",
                                                             "reload", "back", "goto"};

template <class Words>
bool contains(const Words& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// The word that names a step's action, without the prefix of tool names. False when the word that
// counts is no text.
bool actionWord(const json& step, std::string_view& word) {
  for (const char* key : {"action", "tool", "name"}) {
    const auto member = step.find(key);
    if (member == step.end() || member->is_null()) continue;
    if (!member->is_string()) return false;
    word = member->get_ref<const std::string&>();
    if (!word.empty()) break;
  }
  constexpr std::string_view toolPrefix = "browser_";
  // "browser_wait" is no tool, so it is no step either.
  if (word.starts_with(toolPrefix) && word != "browser_wait") word.remove_prefix(toolPrefix.size());
  return true;
}

bool isAcceptableStep(const json& step, int depth) {
  std::string_view word;
  if (!step.is_object() || !actionWord(step, word)) return false;
  if (word == "batch") {
    const json* arguments = findObject(step, "arguments");
    return validateBatchSteps(arguments != nullptr ? *arguments : step, depth + 1);
  }
  return contains(stepActions, word) && !step.contains("steps") && !step.contains("arguments");
}

}  // namespace

bool validateBatchSteps(const json& arguments, int depth) {
  if (depth > maxBatchDepth) return false;
  const json* steps = findArray(arguments, "steps");
  if (steps == nullptr || steps->empty() || steps->size() > maxBatchSteps) return false;
  return std::all_of(steps->begin(), steps->end(),
                     [depth](const json& step) { return isAcceptableStep(step, depth); });
}

std::string navigateAction(const json& arguments) {
  const std::string_view action = lenientText(arguments, "action");
  if (!action.empty()) return std::string(action);
  return lenientText(arguments, "url").empty() ? "tabs" : "goto";
}

bool isNavigateAction(const std::string& action) { return contains(navigateActions, action); }

}  // namespace media::win::chrome_inspect
