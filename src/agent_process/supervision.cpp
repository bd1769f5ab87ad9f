#include "agent_process/supervision.h"

#include "agent/agent_end.h"
#include "agent/agent_starts.h"
#include "agent/current_agent.h"
#include "agent_process/agent_launch.h"
#include "agent_process/cli_location.h"
#include "agent_process/port_scan.h"
#include "channel/host_log.h"
#include "platform/clock.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t watchdogPeriodMs = 5000;

AgentListener agentListener;

// An agent that answers; `fresh`: it was started by this call.
struct Answering {
  std::uint16_t port = 0;
  bool fresh = false;
};

void logReuse(std::uint16_t port) {
  appendDebugLog("reusing llm agent on port " + std::to_string(port));
}

// The port of an agent that answers already, ours or not; 0 when there is none.
std::uint16_t findRunningAgent() {
  const std::uint16_t candidate = candidateAgentPort();
  if (candidate != 0 && isAgentReady(candidate)) {
    logReuse(candidate);
    return candidate;
  }
  const std::uint16_t found = firstReadyPort();
  if (found == 0) return 0;
  logReuse(found);
  adoptFoundAgent(found);
  return found;
}

// Starts an agent on the first port that works. The error text is empty on success.
std::string startAgent(std::uint16_t& startedPort) {
  const CliLocation cli = locateCli();
  if (cli.path.empty()) return std::string(cliNameUtf8) + " is not on PATH";
  for (const std::uint16_t port : agentPorts) {
    if (spawnAgent(cli, port)) {
      startedPort = port;
      return {};
    }
    if (!waitUnlessEnding(0)) return "cancelled";
  }
  return "llm agent --serve did not become ready";
}

// Reports to the other callers how the start ended, even when it ends by an exception.
class LeadStart {
 public:
  LeadStart() = default;
  ~LeadStart() { finishStart(error); }
  LeadStart(const LeadStart&) = delete;
  LeadStart& operator=(const LeadStart&) = delete;
  std::string error = "agent start failed";
};

bool lead(Answering& agent, std::string& error) {
  LeadStart start;
  start.error = startAgent(agent.port);
  agent.fresh = true;
  if (start.error.empty()) return true;
  error = start.error;
  appendDebugLog(error, "error");
  return false;
}

bool findOrStartAgent(Answering& agent, std::string& error) {
  for (;;) {
    // Read before looking: a start that ends after the look is then not mistaken for none.
    const std::uint64_t seenStarts = finishedStarts();
    agent.port = findRunningAgent();
    if (agent.port != 0) return true;
    std::string othersError;
    switch (joinStart(seenStarts, othersError)) {
      case StartRole::leader:
        return lead(agent, error);
      case StartRole::ending:
        error = "cancelled";
        return false;
      case StartRole::follower:
        break;
    }
    if (!othersError.empty()) {
      error = othersError;
      return false;
    }
  }
}

}  // namespace

void setAgentListener(const AgentListener& listener) { agentListener = listener; }

std::optional<std::uint16_t> ensureAgent(std::string& error) {
  touchAgentActivity();
  Answering agent;
  if (!findOrStartAgent(agent, error)) return std::nullopt;
  if (agentListener.ready != nullptr) agentListener.ready(agent.port, agent.fresh);
  return agent.port;
}

void endIdleAgent(std::uint64_t nowMs) {
  if (!stopIdleAgent(nowMs)) return;
  appendDebugLog("idle: owned llm agent stopped after 60s quiet", "warn");
  if (agentListener.stopped != nullptr) agentListener.stopped();
}

void idleWatchdog() {
  for (;;) {
    sleepMs(watchdogPeriodMs);
    endIdleAgent(tickCountMs());
  }
}

}  // namespace media::win::chrome_inspect
