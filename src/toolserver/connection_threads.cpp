#include "toolserver/connection_threads.h"

#include <memory>
#include <utility>
#include <vector>

#include "common/detached.h"
#include "platform/locks.h"
#include "platform/owned.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {

struct ConnectionThreads::State {
  explicit State(std::function<void(const OwnedSocket&)> connectionHandler)
      : handler(std::move(connectionHandler)) {
    waiting.reserve(maxConnections);
  }

  const std::function<void(const OwnedSocket&)> handler;
  Mutex mutex;
  Condition offered;
  // Handed over, not taken yet: no more than threads are parked.
  std::vector<OwnedSocket> waiting MORVA_GUARDED_BY(mutex);
  std::size_t parked MORVA_GUARDED_BY(mutex) = 0;
  std::size_t activeConnections MORVA_GUARDED_BY(mutex) = 0;

  // Hands `connection` to a thread that is parked; `noThread` when there is none.
  Serve handOver(OwnedSocket& connection) {
    {
      const Lock lock(mutex);
      if (activeConnections >= maxConnections) return Serve::full;
      if (waiting.size() >= parked) return Serve::noThread;
      ++activeConnections;
      waiting.push_back(std::move(connection));
    }
    offered.notifyOne();  // who wakes up does not have to wait for the lock
    return Serve::started;
  }

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
    const Lock lock(mutex);
    --activeConnections;
    ++parked;
  }

  OwnedSocket takeOffered() {
    const Lock lock(mutex);
    while (waiting.empty()) offered.wait(mutex);
    --parked;
    OwnedSocket connection = std::move(waiting.back());
    waiting.pop_back();
    return connection;
  }
};

ConnectionThreads::ConnectionThreads(std::function<void(const OwnedSocket&)> handler)
    : state_(leaked<State>(std::move(handler))) {}

Serve ConnectionThreads::serve(OwnedSocket connection) {
  State& state = state_;
  const Serve handed = state.handOver(connection);
  if (handed != Serve::noThread) return handed;
  const auto shared = std::make_shared<OwnedSocket>(std::move(connection));
  {
    const Lock lock(state.mutex);  // meanwhile the number can only have fallen
    ++state.activeConnections;
  }
  if (runDetached("connection", [&state, shared] { state.run(std::move(*shared)); })) {
    return Serve::started;
  }
  const Lock lock(state.mutex);
  --state.activeConnections;
  return Serve::noThread;
}

}  // namespace media::win::chrome_inspect
