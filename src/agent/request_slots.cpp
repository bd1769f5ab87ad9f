#include "agent/request_slots.h"

#include <vector>

#include "agent/agent_shared.h"

namespace media::win::chrome_inspect {
namespace {

using Requests = std::vector<std::shared_ptr<HttpExchange>>;

Requests& slotOf(AgentShared& shared, CancelSlot slot) MORVA_REQUIRES(shared.agentMutex) {
  return shared.slots.at(static_cast<std::size_t>(slot));
}

}  // namespace

bool publishRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  if (shared.ending) return false;
  slotOf(shared, slot).push_back(request);
  return true;
}

void takeBackRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  std::erase(slotOf(shared, slot), request);
}

void abortRequests(CancelSlot slot) {
  AgentShared& shared = agentShared();
  Requests taken;
  {
    const Lock lock(shared.agentMutex);
    taken.swap(slotOf(shared, slot));
  }
  for (const auto& request : taken) request->abort();
}

}  // namespace media::win::chrome_inspect
