#include "agent/agent_answer.h"

#include "text/json_parse.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {

using nlohmann::json;

namespace {

bool isGood(std::uint32_t status, GoodStatus good) {
  return good == GoodStatus::any2xx ? status / 100 == 2 : status == 200;
}

std::string_view textOf(const AgentResponse& response) {
  return response.body.empty() ? "{}" : std::string_view(response.body);
}

}  // namespace

bool isWholeAnswer(const AgentResponse& response) {
  return response.status == 200 && response.error.empty();
}

bool parseAnswer(const AgentResponse& response, json& value) {
  std::string ignored;
  return parseJson(textOf(response), value, ignored) == ParseOutcome::ok;
}

AgentAnswer readAnswer(const AgentResponse& response, std::string_view fallback, GoodStatus good) {
  AgentAnswer answer;
  answer.error = fallback;
  if (!response.error.empty()) {
    answer.error = response.error;
    return answer;
  }
  std::string ignored;
  answer.isJson = readJson(textOf(response), answer.body, ignored) == ParseOutcome::ok;
  if (!isGood(response.status, good)) return answer;
  answer.ok = answer.body.root()["ok"].isTrue();
  answer.error = answer.ok ? "" : lenientText(answer.body.root(), "error", fallback);
  return answer;
}

std::string dataText(const AgentAnswer& answer) {
  const JsonView data = answer.body.root()["data"];
  return data ? data.compactText() : "{}";
}

std::string explainedError(const AgentAnswer& answer) {
  return std::string(lenientText(answer.body.root(), "error", answer.error));
}

}  // namespace media::win::chrome_inspect
