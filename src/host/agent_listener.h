#pragma once

namespace media::win::chrome_inspect {

// Sets the agent listener. For an agent that answers it registers our tools with the agent, sends
// the state "connected" to the panel and forwards the agent's chat events; for one that was stopped
// it ends the forwarding and sends "disconnected". Called once, before any thread starts.
void followAgent();

}  // namespace media::win::chrome_inspect
