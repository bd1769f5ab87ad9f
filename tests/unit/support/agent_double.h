#pragma once

#include "support/scripted_server.h"

namespace media::win::chrome_inspect {

// An agent: a server that is ready, and leaves every other request to the script.
class AgentDouble : public ScriptedServer {
 public:
  explicit AgentDouble(Script script);
  // Makes it the host's current agent.
  void adopt() const;
};

}  // namespace media::win::chrome_inspect
