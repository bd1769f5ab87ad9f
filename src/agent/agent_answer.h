#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "agent/agent_request.h"

// Judging the answers to plain requests: first whether one came whole, then its status, then its
// body. What came of an exchange that broke off is no answer, whatever its status says.
namespace media::win::chrome_inspect {

// Whether the answer has status 200 and came to its end.
bool isWholeAnswer(const AgentResponse& response);

// Parses the body of an answer; an empty one is {}. On false `value` is untouched.
bool parseAnswer(const AgentResponse& response, nlohmann::json& value);

// What most of the agent's routes answer: {"ok", "error", "data"}.
struct AgentAnswer {
  bool ok = false;
  std::string error;     // when not ok
  nlohmann::json value;  // the body, whatever the status; null unless `isJson`
  bool isJson = false;   // an answer came whole, and its body can be parsed or is empty
};

enum class GoodStatus { only200, any2xx };

// `ok` when the answer came whole, its status is a good one and the body's "ok" is true. Else
// `error` is the request's when it did not come whole; the body's "error" when the status is a good
// one and it has such a text; and `fallback`.
AgentAnswer readAnswer(const AgentResponse& response, std::string_view fallback,
                       GoodStatus good = GoodStatus::only200);

// The "data" of an answer's value, moved out of it; {} when it has none.
nlohmann::json takeData(nlohmann::json& value);

// Why an answer is not ok, where the body's "error" counts with any status.
std::string explainedError(const AgentAnswer& answer);

}  // namespace media::win::chrome_inspect
