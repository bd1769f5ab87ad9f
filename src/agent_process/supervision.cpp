#include "agent_process/supervision.h"

#include <utility>

#include "agent/agent_end.h"
#include "agent/agent_starts.h"
#include "agent/current_agent.h"
#include "agent_process/agent_launch.h"
#include "agent_process/cli_location.h"
#include "agent_process/port_scan.h"
#include "channel/host_log.h"
#include "common/detached.h"
#include "platform/clock.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t watchdogPeriodMs = 5000;

AgentListener agentListener;

void logReuse(std::uint16_t port) {
  appendDebugLog("reusing llm agent on port " + std::to_string(port));
}

// An agent that answers already, ours or not, if there is one.
AgentId findRunningAgent() {
  const AgentId candidate = candidateAgent();
  if (candidate && isAgentReady(candidate.port)) {
    logReuse(candidate.port);
    return candidate;
  }
  const std::uint16_t found = firstReadyPort();
  if (found == 0) return {};
  logReuse(found);
  return adoptFoundAgent(found);
}

// Starts an agent on the first port that works. The error text is empty on success.
std::string startAgent(AgentId& agent) {
  const CliLocation cli = locateCli();
  if (cli.path.empty()) return std::string(cliNameUtf8) + " is not on PATH";
  for (const std::uint16_t port : agentPorts) {
    agent = spawnAgent(cli, port);
    if (agent) return {};
    if (!waitUnlessEnding(0)) return "cancelled";
  }
  return "llm agent --serve did not become ready";
}

// Reports to the other callers how the start ended, even when it ends by an exception.
class LeadStart {
 public:
  LeadStart() = default;
  ~LeadStart() { finishStart(std::move(error)); }
  LeadStart(const LeadStart&) = delete;
  LeadStart& operator=(const LeadStart&) = delete;
  std::optional<std::string> error;
};

bool lead(AgentId& agent, std::string& error) {
  LeadStart start;
  error = startAgent(agent);
  start.error = error;
  if (error.empty()) return true;
  appendDebugLog(error, "error");
  return false;
}

bool findOrStartAgent(AgentId& agent, std::string& error) {
  for (;;) {
    // Read before looking: a start that ends after the look is then not mistaken for none.
    const std::uint64_t seenStarts = finishedStarts();
    agent = findRunningAgent();
    if (agent) return true;
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

void reportEnd(const AgentId& ended) {
  if (ended && agentListener.stopped != nullptr) agentListener.stopped(ended);
}

}  // namespace

void setAgentListener(const AgentListener& listener) { agentListener = listener; }

std::optional<std::uint16_t> ensureAgent(std::string& error) {
  touchAgentActivity();
  AgentId agent;
  if (!findOrStartAgent(agent, error)) return std::nullopt;
  if (agentListener.ready != nullptr) agentListener.ready(agent);
  return agent.port;
}

void endIdleAgent(std::uint64_t nowMs) {
  const AgentId ended = stopIdleAgent(nowMs);
  if (!ended) return;
  runContained("log", [] {  // no line is worth the report
    appendDebugLog("idle: owned llm agent stopped after 60s quiet", "warn");
  });
  reportEnd(ended);
}

void endUnusedAgent() { reportEnd(stopUnusedAgent()); }

void idleWatchdog() {
  beginIdleWatch(tickCountMs());
  for (;;) {
    sleepMs(watchdogPeriodMs);
    runContained("idle watchdog", [] { endIdleAgent(tickCountMs()); });
  }
}

}  // namespace media::win::chrome_inspect
