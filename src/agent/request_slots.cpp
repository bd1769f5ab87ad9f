#include "agent/request_slots.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "agent/agent_shared.h"
#include "platform/locks.h"

namespace media::win::chrome_inspect {
namespace {

using Requests = std::vector<PublishedRequest>;

Requests& slotOf(AgentShared& shared, CancelSlot slot) MORVA_REQUIRES(shared.agentMutex) {
  return shared.slots.at(static_cast<std::size_t>(slot));
}

// Takes one out that is older; null when there is none.
std::shared_ptr<HttpExchange> takeOlder(CancelSlot slot, std::uint64_t stream) {
  AgentShared& shared = agentShared();
  const Lock lock(shared.agentMutex);
  Requests& requests = slotOf(shared, slot);
  const auto found = std::ranges::find_if(
      requests, [stream](const PublishedRequest& published) { return published.stream < stream; });
  if (found == requests.end()) return nullptr;
  std::shared_ptr<HttpExchange> request = std::move(found->request);
  requests.erase(found);
  return request;
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
  AgentShared& shared = agentShared();
  Requests taken;  // without memory for a copy: what is to be aborted may be what takes it all
  {
    const Lock lock(shared.agentMutex);
    taken.swap(slotOf(shared, slot));
  }
  for (const PublishedRequest& published : taken) published.request->abort();
}

void abortOlderRequests(CancelSlot slot, std::uint64_t stream) {
  while (const auto request = takeOlder(slot, stream)) request->abort();
}

}  // namespace media::win::chrome_inspect
