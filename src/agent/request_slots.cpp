#include "agent/request_slots.h"

#include <functional>
#include <vector>

#include "agent/agent_shared.h"
#include "platform/locks.h"

namespace media::win::chrome_inspect {
namespace {

using Requests = std::vector<PublishedRequest>;

Requests& slotOf(AgentShared& shared, CancelSlot slot) MORVA_REQUIRES(shared.agentMutex) {
  return shared.slots.at(static_cast<std::size_t>(slot));
}

void abortIf(CancelSlot slot, const std::function<bool(const PublishedRequest&)>& isMeant) {
  AgentShared& shared = agentShared();
  Requests taken;
  {
    const Lock lock(shared.agentMutex);
    std::erase_if(slotOf(shared, slot), [&](PublishedRequest& published) {
      const bool take = isMeant(published);
      if (take) taken.push_back(published);
      return take;
    });
  }
  for (const PublishedRequest& published : taken) published.request->abort();
}

}  // namespace

bool publishRequest(const RequestPlace& place, const std::shared_ptr<HttpExchange>& request) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  if (shared.ending) return false;
  slotOf(shared, place.slot).push_back({request, place.stream});
  return true;
}

void takeBackRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  std::erase_if(slotOf(shared, slot), [&request](const PublishedRequest& published) {
    return published.request == request;
  });
}

void abortRequests(CancelSlot slot) {
  abortIf(slot, [](const PublishedRequest&) { return true; });
}

void abortOlderRequests(CancelSlot slot, std::uint64_t stream) {
  abortIf(slot, [stream](const PublishedRequest& published) { return published.stream < stream; });
}

}  // namespace media::win::chrome_inspect
