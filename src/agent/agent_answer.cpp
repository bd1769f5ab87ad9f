#include "agent/agent_answer.h"

#include <utility>

#include "text/json_parse.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {

using nlohmann::json;

namespace {

bool isGood(std::uint32_t status, GoodStatus good) {
  return status == 200 || (good == GoodStatus::any2xx && status > 200 && status < 300);
}

}  // namespace

bool isWholeAnswer(const AgentResponse& response) {
  return response.status == 200 && response.error.empty();
}

bool parseAnswer(const AgentResponse& response, json& value) {
  std::string ignored;
  const std::string_view body = response.body.empty() ? "{}" : std::string_view(response.body);
  return parseJson(body, value, ignored) == ParseOutcome::ok;
}

AgentAnswer readAnswer(const AgentResponse& response, std::string_view fallback, GoodStatus good) {
  AgentAnswer answer{false, std::string(fallback), {}};
  if (!response.error.empty()) {
    answer.error = response.error;
    return answer;
  }
  answer.isJson = parseAnswer(response, answer.value);
  if (!isGood(response.status, good)) return answer;
  answer.ok = lenientBool(answer.value, "ok", false);
  answer.error = answer.ok ? "" : lenientText(answer.value, "error", fallback);
  return answer;
}

json takeData(json& value) {
  const auto data = value.find("data");
  return data == value.end() ? json::object() : std::move(*data);
}

std::string explainedError(const AgentAnswer& answer) {
  return std::string(lenientText(answer.value, "error", answer.error));
}

}  // namespace media::win::chrome_inspect
