#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "agent/agent_request.h"

// Judging the answers to plain requests.
namespace media::win::chrome_inspect {

// Whether the answer has status 200 and came to its end.
bool isWholeAnswer(const AgentResponse& response);

// Parses the body of an answer; an empty one is {}. On false `value` is untouched.
bool parseAnswer(const AgentResponse& response, nlohmann::json& value);

// What most of the agent's routes answer: {"ok", "error", "data"}.
struct AgentAnswer {
  bool ok = false;
  std::string error;     // when not ok; need not be UTF-8
  nlohmann::json value;  // the whole body; null when it is no JSON
};

enum class GoodStatus { only200, any2xx };

// `ok` when the status is a good one and the body's "ok" is true. Else `error` is that of the
// request when the status is none, the body's "error" when it is one, and `fallback` when there is
// no such text or the body is no JSON.
AgentAnswer readAnswer(const AgentResponse& response, std::string_view fallback,
                       GoodStatus good = GoodStatus::only200);

// The "data" of an answer's value, moved out of it; {} when it has none.
nlohmann::json takeData(nlohmann::json& value);

}  // namespace media::win::chrome_inspect
