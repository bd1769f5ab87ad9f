#include "toolserver/connection_threads.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "common/detached.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {

struct ConnectionThreads::State {
  std::function<void(const OwnedSocket&)> handler;
  std::mutex mutex;  // guards what follows
  std::condition_variable offered;
  std::vector<OwnedSocket> waiting;  // handed over, not taken yet: no more than threads are parked
  std::size_t parked = 0;
  std::size_t activeConnections = 0;

  // Serves `connection`, and then whatever is handed over.
  [[noreturn]] void run(OwnedSocket connection) {
    for (;;) {
      serve(connection);
      park();
      // Only now: a peer that comes back as soon as it sees the end must find its place free.
      connection.reset();
      connection = takeOffered();
    }
  }

 private:
  void serve(const OwnedSocket& connection) const {
    try {
      handler(connection);
    } catch (...) {  // one connection's failure, which its peer sees; its place is freed
    }
  }

  void park() {
    const std::lock_guard lock(mutex);
    --activeConnections;
    ++parked;
  }

  OwnedSocket takeOffered() {
    std::unique_lock lock(mutex);
    offered.wait(lock, [this] { return !waiting.empty(); });
    --parked;
    OwnedSocket connection = std::move(waiting.back());
    waiting.pop_back();
    return connection;
  }
};

ConnectionThreads::ConnectionThreads(std::function<void(const OwnedSocket&)> handler)
    : state_(leaked<State>()) {
  state_.handler = std::move(handler);
  state_.waiting.reserve(maxConnections);
}

Serve ConnectionThreads::serve(OwnedSocket connection) {
  State& state = state_;
  {
    const std::lock_guard lock(state.mutex);
    if (state.activeConnections >= maxConnections) return Serve::full;
    if (state.waiting.size() < state.parked) {
      ++state.activeConnections;
      state.waiting.push_back(std::move(connection));
      state.offered.notify_one();
      return Serve::started;
    }
  }
  const auto shared = std::make_shared<OwnedSocket>(std::move(connection));
  {
    const std::lock_guard lock(state.mutex);  // meanwhile the number can only have fallen
    ++state.activeConnections;
  }
  if (runDetached("connection", [&state, shared] { state.run(std::move(*shared)); })) {
    return Serve::started;
  }
  const std::lock_guard lock(state.mutex);
  --state.activeConnections;
  return Serve::noThread;
}

}  // namespace media::win::chrome_inspect
