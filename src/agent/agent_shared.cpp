#include "agent/agent_shared.h"

#include <utility>

#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t childGraceMs = 2000;

}  // namespace

AgentShared& agentShared() {
  static AgentShared& shared = leaked<AgentShared>();
  return shared;
}

OwnedProcess forgetOwnedAgent(AgentShared& shared) {
  if (shared.ownedProcess) shared.port = 0;
  return std::exchange(shared.ownedProcess, OwnedProcess());
}

void endProcess(const OwnedProcess& process) {
  if (!process) return;
  terminateProcess(process);
  (void)waitForExit(process, childGraceMs);  // asked to end; what lingers is the system's to finish
}

}  // namespace media::win::chrome_inspect
