#include "agent_process/port_scan.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "common/detached.h"
#include "platform/http_client.h"
#include "platform/locks.h"

namespace media::win::chrome_inspect {
namespace {

using SteadyClock = Condition::Clock;

constexpr std::uint32_t headStartMs = 30;

std::int64_t msSince(SteadyClock::time_point begin) {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(SteadyClock::now() - begin).count();
}

}  // namespace

struct PortScan::Shared {
  Shared(std::span<const std::uint16_t> all, std::uint32_t limit)
      : ports(all.begin(), all.end()), limitMs(limit), states(ports.size()) {}

  const std::vector<std::uint16_t> ports;
  const std::uint32_t limitMs;
  const SteadyClock::time_point begin = SteadyClock::now();
  Mutex mutex;
  Condition decided;
  std::vector<std::optional<PortState>> states MORVA_GUARDED_BY(mutex);

  void decide(std::size_t index, Readiness answer) {
    const Lock lock(mutex);
    states.at(index) = PortState{ports.at(index), answer, msSince(begin)};
    decided.notifyAll();
  }
};

// Decides in its destructor: a probe that throws, or a thread that never starts, must not leave the
// caller waiting.
class PortScan::Probe {
 public:
  Probe(std::shared_ptr<Shared> shared, std::size_t index)
      : shared_(std::move(shared)), index_(index) {}
  ~Probe() { shared_->decide(index_, answer_); }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;
  void run() { answer_ = askReadiness(shared_->ports[index_], shared_->limitMs); }

 private:
  std::shared_ptr<Shared> shared_;
  std::size_t index_;
  Readiness answer_ = Readiness::none;
};

PortScan::PortScan(std::span<const std::uint16_t> ports, std::uint32_t limitMs)
    : shared_(std::make_shared<Shared>(ports, limitMs)) {
  // Each probe has a thread of its own, also a single one: some systems let a request take longer
  // than its time-outs say, and the caller must not.
  for (std::size_t i = 0; i < ports.size(); ++i) {
    const auto probe = std::make_shared<Probe>(shared_, i);
    if (!runDetached("agent probe", [probe] { probe->run(); })) probe->run();
  }
}

PortScan::~PortScan() = default;

PortState PortScan::wait(std::size_t index, std::uint32_t limitMs) {
  Shared& shared = *shared_;
  const auto deadline = shared.begin + std::chrono::milliseconds(std::min(limitMs, shared.limitMs));
  const Lock lock(shared.mutex);
  const std::optional<PortState>& state = shared.states.at(index);
  while (!state && shared.decided.waitUntil(shared.mutex, deadline)) continue;
  return state.value_or(PortState{shared.ports.at(index), Readiness::none, shared.limitMs});
}

std::uint16_t firstReadyPort(std::span<const std::uint16_t> ports, std::uint32_t limitMs) {
  if (ports.empty()) return 0;
  prepareForExchanges();  // not in the first port's head start
  // Nearly every agent is on the first port, and asking one takes as long as asking all of them.
  PortScan first(ports.first(1), limitMs);
  const std::uint32_t aloneMs = ports.size() > 1 ? headStartMs : limitMs;
  if (first.wait(0, aloneMs).answer == Readiness::ready) return ports.front();
  PortScan others(ports.subspan(1), limitMs);
  if (first.wait(0).answer == Readiness::ready) return ports.front();
  for (std::size_t i = 1; i < ports.size(); ++i) {
    if (others.wait(i - 1).answer == Readiness::ready) return ports[i];
  }
  return 0;
}

bool isAgentReady(std::uint16_t port, std::uint32_t limitMs) {
  return firstReadyPort({&port, 1}, limitMs) != 0;
}

}  // namespace media::win::chrome_inspect
