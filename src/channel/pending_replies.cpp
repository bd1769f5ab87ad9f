#include "channel/pending_replies.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>
#include <utility>

#include "channel/framing.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
using SteadyClock = std::chrono::steady_clock;

struct Unclaimed {
  json reply;
  std::size_t bytes = 0;
};

struct PendingReplies {
  std::mutex mutex;  // guards what follows; not held while a frame is written
  std::condition_variable arrived;
  std::unordered_map<std::string, std::optional<json>> expected;  // by our own running requests
  std::unordered_map<std::string, Unclaimed> unclaimed;
  std::deque<std::string> order;  // the ids in `unclaimed`, oldest first
  std::size_t bytes = 0;          // of all in `unclaimed`

  void drop(const std::string& id) {
    const auto entry = unclaimed.find(id);
    if (entry == unclaimed.end()) return;
    bytes -= entry->second.bytes;
    unclaimed.erase(entry);
    std::erase(order, id);
  }

  void keep(const std::string& id, Unclaimed reply) {
    drop(id);
    bytes += reply.bytes;
    unclaimed.emplace(id, std::move(reply));
    order.push_back(id);
    while (order.size() > maxUnclaimedReplies || (bytes > maxUnclaimedBytes && order.size() > 1)) {
      drop(std::string(order.front()));
    }
  }

  bool takeUnclaimed(const std::string& id, json& reply) {
    const auto entry = unclaimed.find(id);
    if (entry == unclaimed.end()) return false;
    reply = std::move(entry->second.reply);
    drop(id);
    return true;
  }

  bool takeExpected(const std::string& id, json& reply) {
    std::optional<json>& answer = expected.at(id);
    if (answer) reply = std::move(*answer);
    return answer.has_value();
  }
};

PendingReplies& pendingReplies() {
  static PendingReplies& replies = leaked<PendingReplies>();
  return replies;
}

// Waits, `lock` held, until `take` succeeds or the time is over.
template <class Take>
bool waitUntilTaken(PendingReplies& replies, std::unique_lock<std::mutex>& lock,
                    std::uint32_t timeoutMs, const Take& take) {
  const auto deadline = SteadyClock::now() + std::chrono::milliseconds(timeoutMs);
  // Some run-times turn a steady deadline into one of the wall clock, which may be set meanwhile:
  // short waits, counted on the steady clock, bound what that can cost.
  constexpr auto longestWait = std::chrono::milliseconds(1000);
  while (!take()) {
    const auto left = deadline - SteadyClock::now();
    if (left <= SteadyClock::duration::zero()) return false;
    replies.arrived.wait_for(lock, std::min<SteadyClock::duration>(left, longestWait));
  }
  return true;
}

// Expects the answer to one request of our own for as long as it lives; what comes later is
// dropped.
class Expectation {
 public:
  explicit Expectation(std::string id) : id_(std::move(id)) {
    const std::lock_guard lock(pendingReplies().mutex);
    pendingReplies().expected.emplace(id_, std::nullopt);
  }
  ~Expectation() {
    const std::lock_guard lock(pendingReplies().mutex);
    pendingReplies().expected.erase(id_);
  }
  Expectation(const Expectation&) = delete;
  Expectation& operator=(const Expectation&) = delete;

  bool wait(std::uint32_t timeoutMs, json& reply) const {
    PendingReplies& replies = pendingReplies();
    std::unique_lock lock(replies.mutex);
    return waitUntilTaken(replies, lock, timeoutMs,
                          [&] { return replies.takeExpected(id_, reply); });
  }

 private:
  std::string id_;
};

}  // namespace

void storeReply(const std::string& id, json reply, std::size_t bytes) {
  PendingReplies& replies = pendingReplies();
  const std::lock_guard lock(replies.mutex);
  const auto expected = replies.expected.find(id);
  if (expected != replies.expected.end()) {
    expected->second = std::move(reply);
  } else if (!id.empty() && !id.starts_with(ownRequestPrefix)) {
    replies.keep(id, {std::move(reply), bytes});
  }
  replies.arrived.notify_all();
}

bool waitForReply(const std::string& id, std::uint32_t timeoutMs, json& reply) {
  PendingReplies& replies = pendingReplies();
  std::unique_lock lock(replies.mutex);
  return waitUntilTaken(replies, lock, timeoutMs, [&] { return replies.takeUnclaimed(id, reply); });
}

void wakeReplyWaiters() {
  PendingReplies& replies = pendingReplies();
  const std::lock_guard lock(
      replies.mutex);  // a waiter between its test and its wait is not missed
  replies.arrived.notify_all();
}

bool callExtension(const json& message, json& reply, std::uint32_t timeoutMs) {
  if (!message.is_object()) return false;
  const auto id = message.find("requestId");
  if (id == message.end() || !id->is_string()) return false;
  const Expectation expectation(id->get<std::string>());
  return writeMessage(message) && expectation.wait(timeoutMs, reply);
}

}  // namespace media::win::chrome_inspect
