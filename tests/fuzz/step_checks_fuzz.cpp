// What an agent may send as a tool call: judged without end or overflow, and as the rules written
// out once more say.

#include "browser_tools/step_checks.h"

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

#include "browser_tools/tool_call.h"
#include "fuzz_input.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

std::string wordOf(const json& step) {
  for (const char* key : {"action", "tool", "name"}) {
    if (!step.contains(key) || step[key].is_null()) continue;
    if (!step[key].is_string()) return "no word";
    if (step[key] != "") return step[key];
  }
  return "";
}

bool acceptNaively(const json& batch, int depth) {
  if (depth > 4 || !batch.is_object() || !batch.contains("steps")) return false;
  const json& steps = batch["steps"];
  if (!steps.is_array() || steps.empty() || steps.size() > 32) return false;
  static const std::set<std::string> words = {
      "read",         "find",         "click",         "type",         "select",        "wait",
      "browser_read", "browser_find", "browser_click", "browser_type", "browser_select"};
  for (const json& step : steps) {
    if (!step.is_object()) return false;
    const std::string word = wordOf(step);
    if (word == "batch" || word == "browser_batch") {
      const bool inside = step.contains("arguments") && step["arguments"].is_object();
      if (!acceptNaively(inside ? step["arguments"] : step, depth + 1)) return false;
    } else if (words.count(word) == 0 || step.contains("steps") || step.contains("arguments")) {
      return false;
    }
  }
  return true;
}

}  // namespace

void fuzz(std::string_view text) {
  json arguments;
  std::string error;
  if (parseJson(text, arguments, error) != ParseOutcome::ok) return;
  require(validateBatchSteps(arguments, 0) == acceptNaively(arguments, 0));
  (void)isAllowedTool("browser_navigate", arguments, 0);
}

}  // namespace media::win::chrome_inspect
