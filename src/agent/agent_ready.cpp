#include "agent/agent_ready.h"

#include <nlohmann/json.hpp>
#include <string>

#include "agent/agent_answer.h"
#include "agent/agent_request.h"
#include "text/json_parse.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t maxReadyBody = 64 * 1024;

bool saysReady(const std::string& body) {
  nlohmann::json answer;
  std::string error;
  if (parseJson(body, answer, error) != ParseOutcome::ok || !answer.is_object()) return false;
  const auto ready = answer.find("ready");
  return ready == answer.end() || *ready == true;
}

}  // namespace

Readiness askReadiness(std::uint16_t port, std::uint32_t limitMs) {
  const AgentResponse response = agentRequest(port, L"GET", L"/ready", "", {maxReadyBody, limitMs});
  if (isWholeAnswer(response) && saysReady(response.body)) return Readiness::ready;
  if (response.status == 200) return Readiness::notReady;
  return response.status != 0 ? Readiness::foreign : Readiness::none;
}

}  // namespace media::win::chrome_inspect
