#include "agent_process/agent_launch.h"

#include <utility>

#include "agent/agent_end.h"
#include "agent/agent_shared.h"
#include "agent/agent_starts.h"
#include "agent/current_agent.h"
#include "agent_process/child_output.h"
#include "agent_process/port_scan.h"
#include "channel/host_log.h"
#include "common/paths.h"
#include "platform/byte_stream.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/process.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t pollPauseMs = 400;
constexpr std::uint32_t lastProbeMs = 3500;  // of a child that accepts but does not answer

// A data folder that is missing would fail the start; the host's own folder does not.
std::wstring childFolder() {
  const std::wstring& folder = hostDataFolder();
  return isExistingFolder(folder) ? folder : std::wstring();
}

// Starts the child with its output on a pipe to our log. False when there is no child; the reason
// has been logged.
bool startChild(const CliLocation& cli, std::uint16_t port, OwnedProcess& child) {
  OwnedStream readEnd;
  OwnedStream writeEnd;
  if (!makePipe(readEnd, writeEnd)) return false;
  std::uint32_t systemError = 0;
  const SpawnResult spawned = spawnHidden(agentCommandLine(cli.path, port), childFolder(),
                                          writeEnd.get(), child, systemError);
  writeEnd.reset();
  if (spawned != SpawnResult::ok) {
    const std::string reason = spawned == SpawnResult::noAttributeList
                                   ? "attribute list"
                                   : "win32=" + std::to_string(systemError);
    appendDebugLog("spawn failed " + cli.pathUtf8 + " " + reason, "error");
    return false;
  }
  appendDebugLog("spawn " + cli.pathUtf8 + " --log-level trace port " + std::to_string(port));
  (void)startOutputReader(std::move(readEnd));  // without a thread its output goes nowhere
  return true;
}

// A child that has not been adopted ends with what was to adopt it, such as for want of memory.
struct NewChild {
  NewChild() = default;
  ~NewChild() { endProcess(process); }
  NewChild(const NewChild&) = delete;
  NewChild& operator=(const NewChild&) = delete;
  OwnedProcess process;
};

// Starts the child and makes it the owned agent: the number of the ownership, or 0. `polled` is a
// handle of our own: the state's may be closed by whoever stops the agent while we still poll.
std::uint64_t startOwnedAgent(const CliLocation& cli, std::uint16_t port, OwnedProcess& polled) {
  const SpawnPermit permit;
  NewChild child;
  if (!permit.granted() || !startChild(cli, port, child.process)) return 0;
  polled = duplicateProcess(child.process);
  return adoptOwnedAgent(std::move(child.process), port);
}

bool hasExited(const OwnedProcess& child, std::uint16_t port) {
  if (!waitForExit(child, 0)) return false;
  appendDebugLog("spawn exited " + std::to_string(exitCodeOf(child)) + " before ready port " +
                     std::to_string(port),
                 "error");
  return true;
}

bool waitUntilReady(const OwnedProcess& child, std::uint16_t port) {
  const std::uint64_t started = tickCountMs();
  for (std::uint64_t spent = 0; spent < readyDeadlineMs; spent = tickCountMs() - started) {
    if (hasExited(child, port)) return false;
    // A probe gets no more than what is left, or a mute child would stretch the deadline.
    if (isAgentReady(port, readyDeadlineMs - static_cast<std::uint32_t>(spent))) return true;
    if (!waitUnlessEnding(pollPauseMs)) return false;
  }
  if (isAgentReady(port, lastProbeMs)) return true;
  appendDebugLog("spawn port " + std::to_string(port) + " not ready", "warn");
  return false;
}

}  // namespace

std::wstring agentCommandLine(const std::wstring& path, std::uint16_t port) {
  return L"\"" + path +
         L"\" --no-gui --log-level trace llm agent --serve --host 127.0.0.1 --port " +
         std::to_wstring(port) + L" --consent-ui stream";
}

AgentId spawnAgent(const CliLocation& cli, std::uint16_t port) {
  OwnedProcess polled;
  const std::uint64_t serial = startOwnedAgent(cli, port, polled);
  if (serial == 0) return {};
  if (waitUntilReady(polled, port)) return {port, serial};
  stopOwnedAgent(serial);
  return {};
}

}  // namespace media::win::chrome_inspect
