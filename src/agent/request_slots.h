#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/http_client.h"

// Where another thread finds a running request to abort it. Threads: any.
namespace media::win::chrome_inspect {

// On whose behalf a request runs. Only the end of the host aborts those that are `plain`.
enum class CancelSlot { plain, turn, events, realtime, speech };
inline constexpr std::size_t cancelSlotCount = 5;

// Where a request is published.
struct RequestPlace {
  CancelSlot slot;
  std::uint64_t stream = 0;  // the number of the feed's stream that it reads, if it does
};

// Publishes a running request. False when the host is ending; it must then not be sent.
bool publishRequest(const RequestPlace& place, const std::shared_ptr<HttpExchange>& request);
// Takes a request back that has come to its end; nothing when another thread has taken it already.
void takeBackRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request);
// Takes all requests out of the slot and aborts them.
void abortRequests(CancelSlot slot);
// The same for those of streams with a smaller number than this.
void abortOlderRequests(CancelSlot slot, std::uint64_t stream);

}  // namespace media::win::chrome_inspect
