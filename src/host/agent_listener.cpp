#include "host/agent_listener.h"

#include "agent/current_agent.h"
#include "channel/envelope.h"
#include "chat/events_pump.h"
#include "platform/locks.h"
#include "text/leaked.h"
#include "toolserver/tool_providers.h"
#include "toolserver/tool_server.h"

namespace media::win::chrome_inspect {
namespace {

// Held while the state is looked at and sent, so that the state that was sent last is true.
Mutex& stateMutex() {
  static Mutex& mutex = leaked<Mutex>();
  return mutex;
}

void agentReady(const AgentId& agent) {
  registerHostToolProviders(agent.port, {agentToolsUrl(), sessionToken()});
  const Lock lock(stateMutex());
  if (isGoneAgent(agent)) return;  // ended since it answered
  sendHostStatus("connected");
  startChatEvents(agent);
}

void agentStopped(const AgentId& agent) {
  const Lock lock(stateMutex());
  stopChatEventsOf(agent);
  if (!currentAgent()) sendHostStatus("disconnected");  // else there is a successor
}

}  // namespace

AgentListener agentFollower() { return {agentReady, agentStopped}; }

}  // namespace media::win::chrome_inspect
