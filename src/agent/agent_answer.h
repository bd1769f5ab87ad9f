#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "agent/agent_request.h"
#include "text/json_view.h"

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
  std::string error;    // when not ok
  JsonDocument body;    // whatever the status; none unless `isJson`
  bool isJson = false;  // an answer came whole, and its body can be parsed or is empty
};

enum class GoodStatus { only200, any2xx };

// `ok` when the answer came whole, its status is a good one and the body's "ok" is true. Else
// `error` is the request's when it did not come whole; the body's "error" when the status is a good
// one and it has such a text; and `fallback`.
AgentAnswer readAnswer(const AgentResponse& response, std::string_view fallback,
                       GoodStatus good = GoodStatus::only200);

// The "data" of an answer's body as text; {} when it has none.
std::string dataText(const AgentAnswer& answer);

// Why an answer is not ok, where the body's "error" counts with any status.
std::string explainedError(const AgentAnswer& answer);

}  // namespace media::win::chrome_inspect
