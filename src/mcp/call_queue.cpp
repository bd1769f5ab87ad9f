#include "mcp/call_queue.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <list>
#include <optional>
#include <utility>

#include "common/detached.h"
#include "platform/locks.h"
#include "text/json_text.h"
#include "text/json_view.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

using Clock = Condition::Clock;

constexpr const char* threadFailure = "the system has no thread for the call";

std::string progressMessage(const ToolCall& call, std::uint64_t seconds) {
  std::string params;
  JsonObjectText report(params);
  report.member("progressToken") += call.progressToken;
  report.number("progress", seconds);
  report.text("message", "waiting for the browser");
  report.end();
  return rpcNotification("notifications/progress", params);
}

}  // namespace

struct CallQueue::State {
  State(Run runCall, Replies::Send sendMessage, std::chrono::milliseconds reportEvery)
      : run(std::move(runCall)), send(std::move(sendMessage)), every(reportEvery) {}

  struct Entry {
    ToolCall call;
    OwnedSignal givenUp;
    Clock::time_point began = Clock::now();
    std::uint64_t reports = 0;
    bool isCancelled = false;
  };

  const Run run;
  const Replies::Send send;
  const std::chrono::milliseconds every;
  Mutex mutex;  // held while progress and answers are handed to `send`, to keep their order
  Condition changed;
  std::list<Entry> entries MORVA_GUARDED_BY(mutex);  // the first one runs
  bool runs MORVA_GUARDED_BY(mutex) = false;         // there is a thread for the calls
  bool reports MORVA_GUARDED_BY(mutex) = false;      // and one for their progress

  void runCalls() {
    const Lock lock(mutex);
    for (;;) {
      while (entries.empty()) changed.wait(mutex);
      JsonDocument answer;
      Entry& first = entries.front();
      const std::string reply = runUnlocked(first, answer);
      if (!first.isCancelled) addReply(first.call, reply);
      if (!first.call.progressToken.empty()) changed.notifyAll();  // nothing is reported any more
      entries.pop_front();
    }
  }

  // For want of memory a shorter reply.
  static void addReply(const ToolCall& call, const std::string& reply) {
    try {
      call.replies->add(reply);
    } catch (const std::exception&) {
      call.replies->add(rpcError(call.id, RpcError::internal, "out of memory"));
    }
  }

  // The entry stays where it is: only this thread takes the first one away.
  std::string runUnlocked(const Entry& entry, JsonDocument& answer) MORVA_REQUIRES(mutex) {
    if (entry.isCancelled) return {};
    const ToolCall& call = entry.call;
    const Unlocked unlocked(mutex);
    try {
      return run(call, entry.givenUp, answer);
    } catch (const std::exception&) {
      return rpcError(call.id, RpcError::internal, "out of memory");
    }
  }

  Clock::time_point nextReport(const Entry& entry) const {
    return entry.began + every * static_cast<std::int64_t>(entry.reports + 1);
  }

  // When the next report is due.
  std::optional<Clock::time_point> nextReport() MORVA_REQUIRES(mutex) {
    std::optional<Clock::time_point> next;
    for (const Entry& entry : entries) {
      if (entry.call.progressToken.empty() || entry.isCancelled) continue;
      if (!next || nextReport(entry) < *next) next = nextReport(entry);
    }
    return next;
  }

  void reportProgress() {
    const Lock lock(mutex);
    for (;;) {
      const auto next = nextReport();
      if (!next) {
        changed.wait(mutex);
      } else if (!changed.waitUntil(mutex, *next)) {
        reportThoseDue(Clock::now());
      }
    }
  }

  void reportThoseDue(Clock::time_point now) MORVA_REQUIRES(mutex) {
    for (Entry& entry : entries) {
      if (entry.call.progressToken.empty() || entry.isCancelled || nextReport(entry) > now)
        continue;
      // What could not be reported in time, as the machine slept, is passed over.
      entry.reports =
          std::max(entry.reports + 1, static_cast<std::uint64_t>((now - entry.began) / every));
      const auto waited = std::chrono::duration_cast<std::chrono::seconds>(now - entry.began);
      send(progressMessage(
          entry.call,
          std::max<std::uint64_t>(entry.reports, static_cast<std::uint64_t>(waited.count()))));
    }
  }
};

CallQueue::CallQueue(Run run, Replies::Send send, std::uint32_t progressMs)
    : state_(
          leaked<State>(std::move(run), std::move(send), std::chrono::milliseconds(progressMs))) {}

void CallQueue::add(ToolCall call) {
  State& state = state_;
  const Lock lock(state.mutex);
  if (!state.runs) state.runs = runDetached("tool calls", [&state] { state.runCalls(); });
  if (!call.progressToken.empty() && !state.reports) {
    state.reports = runDetached("call progress", [&state] { state.reportProgress(); });
  }
  State::Entry entry{std::move(call)};
  if (!state.runs || !makeSignal(entry.givenUp)) {
    return entry.call.replies->add(rpcError(entry.call.id, RpcError::internal, threadFailure));
  }
  state.entries.push_back(std::move(entry));
  state.changed.notifyAll();
}

void CallQueue::cancel(const std::string& id) {
  const Lock lock(state_.mutex);
  for (State::Entry& entry : state_.entries) {
    if (entry.call.id != id) continue;
    entry.isCancelled = true;
    raiseSignal(entry.givenUp);
  }
}

}  // namespace media::win::chrome_inspect
