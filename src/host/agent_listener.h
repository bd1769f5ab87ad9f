#pragma once

namespace media::win::chrome_inspect {

// Has whatever depends on the agent follow it: an agent that answers is told of our tools, the
// panel of the agent, and its chat events are forwarded until it is gone. Called once, before any
// thread starts.
void followAgent();

}  // namespace media::win::chrome_inspect
