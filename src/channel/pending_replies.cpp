#include "channel/pending_replies.h"

#include <chrono>
#include <deque>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "channel/framing.h"
#include "platform/locks.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

struct Unclaimed {
  JsonDocument reply;
  std::size_t bytes;
};

struct PendingReplies {
  Mutex mutex;  // not held while a frame is written
  Condition arrived;
  // By our own running requests.
  std::unordered_map<std::string, std::optional<JsonDocument>> expected MORVA_GUARDED_BY(mutex);
  std::unordered_map<std::string, Unclaimed> unclaimed MORVA_GUARDED_BY(mutex);
  std::deque<std::string> order MORVA_GUARDED_BY(mutex);  // the ids in `unclaimed`, oldest first
  std::size_t bytes MORVA_GUARDED_BY(mutex) = 0;          // of all in `unclaimed`

  // Moves the answer into `dropped`: freeing a large one takes its time, which is not to be spent
  // under the lock.
  void drop(const std::string& id, std::vector<JsonDocument>& dropped) MORVA_REQUIRES(mutex) {
    const auto entry = unclaimed.find(id);
    if (entry == unclaimed.end()) return;
    bytes -= entry->second.bytes;
    dropped.push_back(std::move(entry->second.reply));
    unclaimed.erase(entry);
    std::erase(order, id);
  }

  void keep(const std::string& id, Unclaimed reply, std::vector<JsonDocument>& dropped)
      MORVA_REQUIRES(mutex) {
    drop(id, dropped);
    bytes += reply.bytes;
    unclaimed.emplace(id, std::move(reply));
    order.push_back(id);
    while (order.size() > maxUnclaimedReplies || (bytes > maxUnclaimedBytes && order.size() > 1)) {
      drop(std::string(order.front()), dropped);
    }
  }

  bool takeUnclaimed(const std::string& id, JsonDocument& reply) MORVA_REQUIRES(mutex) {
    const auto entry = unclaimed.find(id);
    if (entry == unclaimed.end()) return false;
    std::vector<JsonDocument> taken;
    drop(id, taken);
    reply = std::move(taken.front());
    return true;
  }

  bool takeExpected(const std::string& id, JsonDocument& reply) MORVA_REQUIRES(mutex) {
    std::optional<JsonDocument>& answer = expected.at(id);
    if (answer) reply = std::move(*answer);
    return answer.has_value();
  }
};

PendingReplies& pendingReplies() {
  static PendingReplies& replies = leaked<PendingReplies>();
  return replies;
}

using Take = bool (PendingReplies::*)(const std::string& id, JsonDocument& reply);

// Waits until `take` succeeds or the time is over.
bool waitUntilTaken(const std::string& id, std::uint32_t timeoutMs, JsonDocument& reply,
                    Take take) {
  PendingReplies& replies = pendingReplies();
  const auto deadline = Condition::Clock::now() + std::chrono::milliseconds(timeoutMs);
  const Lock lock(replies.mutex);
  while (!(replies.*take)(id, reply)) {
    if (!replies.arrived.waitUntil(replies.mutex, deadline)) return false;
  }
  return true;
}

// Expects the answer to one request of our own for as long as it lives; what comes later is
// dropped.
class Expectation {
 public:
  explicit Expectation(std::string id) : id_(std::move(id)) {
    PendingReplies& replies = pendingReplies();
    const Lock lock(replies.mutex);
    replies.expected.emplace(id_, std::nullopt);
  }
  ~Expectation() {
    PendingReplies& replies = pendingReplies();
    const Lock lock(replies.mutex);
    replies.expected.erase(id_);
  }
  Expectation(const Expectation&) = delete;
  Expectation& operator=(const Expectation&) = delete;

  bool wait(std::uint32_t timeoutMs, JsonDocument& reply) const {
    return waitUntilTaken(id_, timeoutMs, reply, &PendingReplies::takeExpected);
  }

 private:
  std::string id_;
};

}  // namespace

void storeReply(const std::string& id, JsonDocument reply, std::size_t bytes) {
  PendingReplies& replies = pendingReplies();
  // Freed after the lock is gone, as is `reply` when nobody wants it.
  std::vector<JsonDocument> dropped;
  {
    const Lock lock(replies.mutex);
    const auto expected = replies.expected.find(id);
    if (expected != replies.expected.end()) {
      if (expected->second) dropped.push_back(std::move(*expected->second));
      expected->second = std::move(reply);
    } else if (!id.empty() && !id.starts_with(ownRequestPrefix)) {
      replies.keep(id, {std::move(reply), bytes}, dropped);
    }
  }
  replies.arrived.notifyAll();  // who wakes up does not have to wait for the lock
}

bool waitForReply(const std::string& id, std::uint32_t timeoutMs, JsonDocument& reply) {
  return waitUntilTaken(id, timeoutMs, reply, &PendingReplies::takeUnclaimed);
}

void wakeReplyWaiters() {
  PendingReplies& replies = pendingReplies();
  const Lock lock(replies.mutex);  // a waiter between its test and its wait is not missed
  replies.arrived.notifyAll();
}

bool callExtension(const json& message, JsonDocument& reply, std::uint32_t timeoutMs) {
  if (!message.is_object()) return false;
  const auto id = message.find("requestId");
  if (id == message.end() || !id->is_string()) return false;
  const Expectation expectation(id->get<std::string>());
  return writeMessage(message) && expectation.wait(timeoutMs, reply);
}

}  // namespace media::win::chrome_inspect
