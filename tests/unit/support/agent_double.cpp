#include "support/agent_double.h"

#include <utility>

#include "agent/current_agent.h"

namespace media::win::chrome_inspect {
namespace {

ScriptedServer::Script readyOr(ScriptedServer::Script script) {
  return [script = std::move(script)](ServedConnection& connection) {
    if (connection.request.starts_with("GET /ready")) return answerWith(connection, "{}");
    script(connection);
  };
}

}  // namespace

AgentDouble::AgentDouble(Script script) : ScriptedServer(readyOr(std::move(script))) {}

void AgentDouble::adopt() const { adoptFoundAgent(port()); }

}  // namespace media::win::chrome_inspect
