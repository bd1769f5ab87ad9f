#include "host/agent_listener.h"

#include <cstdint>

#include "agent_process/supervision.h"
#include "channel/envelope.h"
#include "chat/events_pump.h"
#include "toolserver/tool_providers.h"
#include "toolserver/tool_server.h"

namespace media::win::chrome_inspect {
namespace {

void agentReady(std::uint16_t port, bool fresh) {
  registerHostToolProviders(port, {agentToolsUrl(), sessionToken()});
  sendHostStatus("connected");
  startChatEvents(port, fresh);
}

void agentStopped() {
  stopChatEvents();
  sendHostStatus("disconnected");
}

}  // namespace

void followAgent() { setAgentListener({agentReady, agentStopped}); }

}  // namespace media::win::chrome_inspect
