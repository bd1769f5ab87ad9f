#pragma once

#include "agent/current_agent.h"
#include "support/scripted_server.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// An agent: a server that is ready, and leaves every other request to the script.
class AgentDouble : public ScriptedServer {
 public:
  explicit AgentDouble(Script script)
      : ScriptedServer([script = std::move(script)](ServedConnection& connection) {
          if (connection.request.starts_with("GET /ready")) return answerWith(connection, "{}");
          script(connection);
        }) {}
  // Makes it the host's current agent.
  void adopt() const { adoptFoundAgent(port()); }
};

}  // namespace media::win::chrome_inspect
