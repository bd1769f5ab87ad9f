#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "text/json_view.h"

// Answers of the extension to requests that went through the host, matched by "requestId". The
// host's own requests, and those of local programs, are kept apart: each gets what was meant for
// it. Threads: any.
namespace media::win::chrome_inspect {

// How the ids of the host's own requests begin. An answer to one that nobody waits for any more is
// dropped, so that it cannot be taken for the answer to another.
inline constexpr std::string_view ownRequestPrefix = "cht-";

// Other answers that nobody has asked for are kept, up to so many and so many bytes of frames; then
// the oldest are dropped.
inline constexpr std::size_t maxUnclaimedReplies = 256;
inline constexpr std::size_t maxUnclaimedBytes = 64 * 1024 * 1024;

// Takes an answer that came as `bytes` bytes: for the request of our own with this id, else for
// whoever waits, or will wait, for `id`. An empty id is dropped. A later answer with the same id
// takes the place of the earlier one.
void storeReply(const std::string& id, JsonDocument reply, std::size_t bytes = 0);

// Takes the answer to a request that is not our own, waiting for it up to `timeoutMs`. False when
// it did not come in time; `reply` is then untouched.
bool waitForReply(const std::string& id, std::uint32_t timeoutMs, JsonDocument& reply);

// Lets every waiter look again; one whose answer is not there goes on waiting.
void wakeReplyWaiters();

// Sends a request of our own, whose "requestId" must be a string that no other running one has, and
// waits for its answer. False when it has no such id, could not be sent, or was not answered in
// time.
bool callExtension(const nlohmann::json& message, JsonDocument& reply, std::uint32_t timeoutMs);

}  // namespace media::win::chrome_inspect
