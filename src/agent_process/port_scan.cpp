#include "agent_process/port_scan.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include "agent/agent_request.h"
#include "agent/agent_state.h"
#include "common/detached.h"

namespace media::win::chrome_inspect {
namespace {

using SteadyClock = std::chrono::steady_clock;

enum class Verdict { open, ready, notReady };

struct Scan {
  explicit Scan(std::size_t count) : verdicts(count, Verdict::open) {}

  std::mutex mutex;  // guards what follows
  std::condition_variable decided;
  std::vector<Verdict> verdicts;

  void decide(std::size_t index, bool ready) {
    const std::lock_guard lock(mutex);
    verdicts.at(index) = ready ? Verdict::ready : Verdict::notReady;
    decided.notify_all();
  }

  Verdict waitFor(std::size_t index, SteadyClock::time_point deadline) {
    std::unique_lock lock(mutex);
    decided.wait_for(lock, deadline - SteadyClock::now(),
                     [&] { return verdicts.at(index) != Verdict::open; });
    return verdicts.at(index);
  }
};

// Says "not ready" in its destructor unless it was said otherwise: a probe that throws, or a thread
// that never starts, must not leave the caller waiting.
class Probe {
 public:
  Probe(std::shared_ptr<Scan> scan, std::size_t index) : scan_(std::move(scan)), index_(index) {}
  ~Probe() { scan_->decide(index_, ready_); }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;
  void run(std::int32_t port, std::uint32_t limitMs) { ready_ = probeAgentReady(port, limitMs); }

 private:
  std::shared_ptr<Scan> scan_;
  std::size_t index_;
  bool ready_ = false;
};

// Each probe has a thread of its own, also a single one: some systems give a request more time than
// it was told, and the caller has none to give.
void startProbe(const std::shared_ptr<Scan>& scan, std::size_t index, std::int32_t port,
                std::uint32_t limitMs) {
  const auto probe = std::make_shared<Probe>(scan, index);
  if (!runDetached("agent probe", [=] { probe->run(port, limitMs); })) probe->run(port, limitMs);
}

}  // namespace

std::int32_t firstReadyPort(const std::vector<std::int32_t>& ports, std::uint32_t limitMs) {
  const auto deadline = SteadyClock::now() + std::chrono::milliseconds(limitMs);
  const auto scan = std::make_shared<Scan>(ports.size());
  for (std::size_t i = 0; i < ports.size(); ++i) startProbe(scan, i, ports[i], limitMs);
  for (std::size_t i = 0; i < ports.size(); ++i) {
    if (scan->waitFor(i, deadline) == Verdict::ready) return ports[i];
  }
  return 0;
}

std::int32_t findReadyAgent() {
  std::vector<std::int32_t> ports;
  ports.reserve(agentPortCount);
  for (std::int32_t i = 0; i < agentPortCount; ++i) ports.push_back(firstAgentPort + i);
  return firstReadyPort(ports);
}

}  // namespace media::win::chrome_inspect
