#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "agent/agent_ready.h"
#include "agent/current_agent.h"

namespace media::win::chrome_inspect {

inline constexpr std::uint32_t probeLimitMs = 15000;

struct PortState {
  std::uint16_t port = 0;
  Readiness answer = Readiness::none;
  std::int64_t tookMs = 0;  // until it was decided
};

// Asks several ports whether an agent is ready there, all at the same time: on Windows a closed
// port takes seconds to say so. Belongs to one thread; may be destroyed before all have answered.
class PortScan {
 public:
  PortScan(std::span<const std::uint16_t> ports, std::uint32_t limitMs);
  ~PortScan();
  PortScan(const PortScan&) = delete;
  PortScan& operator=(const PortScan&) = delete;

  // Waits until `ports[index]` has answered. After the limit, which counts from construction, as
  // does a shorter `limitMs`, a port that has not is taken for silent.
  PortState wait(std::size_t index, std::uint32_t limitMs = probeLimitMs);

 private:
  struct Shared;
  class Probe;
  std::shared_ptr<Shared> shared_;
};

// The first of `ports` on which an agent is ready; 0 when none is. The first port has 30 ms for
// itself, then the others are asked at the same time. Blocks until every port before the answer has
// been decided, `limitMs` and those 30 ms at most.
std::uint16_t firstReadyPort(std::span<const std::uint16_t> ports = agentPorts,
                             std::uint32_t limitMs = probeLimitMs);

// Whether an agent is ready on `port`. Never takes longer than `limitMs`.
bool isAgentReady(std::uint16_t port, std::uint32_t limitMs = probeLimitMs);

}  // namespace media::win::chrome_inspect
