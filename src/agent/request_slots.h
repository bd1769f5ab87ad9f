#pragma once

#include <cstddef>
#include <memory>

#include "platform/http_client.h"

// Where another thread finds a running request to abort it. Threads: any.
namespace media::win::chrome_inspect {

// On whose behalf a request runs. Only the end of the host aborts those that are `plain`.
enum class CancelSlot { plain, turn, events, realtime };
inline constexpr std::size_t cancelSlotCount = 4;

// Publishes a running request. False when the host is ending; it must then not be sent.
bool publishRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request);
// Takes a request back that has come to its end; nothing when another thread has taken it already.
void takeBackRequest(CancelSlot slot, const std::shared_ptr<HttpExchange>& request);
// Takes all requests out of the slot and aborts them.
void abortRequests(CancelSlot slot);

}  // namespace media::win::chrome_inspect
