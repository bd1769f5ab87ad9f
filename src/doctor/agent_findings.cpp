#include "doctor/agent_findings.h"

#include <algorithm>

#include "agent/agent_ready.h"
#include "agent/current_agent.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* sourceTitles[cliSourceCount] = {"saved folder", "registry",
                                                      "app execution alias", "search path"};
constexpr const char* sourceIds[cliSourceCount] = {"cli.options", "cli.registry", "cli.alias",
                                                   "cli.searchPath"};
constexpr const char* notSetTexts[cliSourceCount] = {
    "none is saved; what the panel's settings save holds for the host that runs",
    "there is no value \"cli\" beside the registration with Chrome", "", ""};
constexpr const char* cliRemedy =
    "install the morva desktop application, or choose its folder in the panel's settings";

std::string textOf(const CliLook& look, std::size_t index) {
  const std::string path = toUtf8(look.path);
  switch (look.outcome) {
    case CliOutcome::found:
      return "found: " + path;
    case CliOutcome::missing:
      return "there is no such file: " + path;
    case CliOutcome::notSet:
      return notSetTexts[index];
    case CliOutcome::insideWindowsApps:
      return "lies in the store of packaged apps, whose files cannot be started: " + path;
    case CliOutcome::unavailable:
      return "the system names no folder for local application data";
    case CliOutcome::notOnPath:
      return std::string(cliNameUtf8) + " is not on it";
  }
  return {};
}

Finding judgeSource(const CliLook& look, std::size_t index, bool isUsed) {
  const bool isFound = look.outcome == CliOutcome::found;
  Finding finding{sourceIds[index], std::string("program by ") + sourceTitles[index]};
  finding.health = isFound ? Health::ok : Health::note;
  finding.text = textOf(look, index);
  if (isFound && !isUsed) finding.text += " (not used, as an earlier place has one)";
  finding.facts = {{"found", isFound}, {"used", isUsed}, {"path", toUtf8(look.path)}};
  return finding;
}

std::string textOf(const PortState& state) {
  const std::string time = " (" + std::to_string(state.tookMs) + " ms)";
  switch (state.answer) {
    case Readiness::ready:
      return "an agent is ready" + time;
    case Readiness::notReady:
      return "an agent answers that it is not ready" + time;
    case Readiness::foreign:
      return "another program answers" + time;
    case Readiness::none:
      return "nobody answers" + time;
  }
  return {};
}

const char* nameOf(Readiness answer) {
  switch (answer) {
    case Readiness::ready:
      return "ready";
    case Readiness::notReady:
      return "notReady";
    case Readiness::foreign:
      return "foreign";
    case Readiness::none:
      break;
  }
  return "none";
}

Finding judgePort(const PortState& state) {
  const std::string port = std::to_string(state.port);
  Finding finding{"agent.port." + port, "port " + port};
  finding.health = state.answer == Readiness::ready ? Health::ok : Health::note;
  finding.text = textOf(state);
  finding.facts = {{"port", std::int64_t{state.port}},
                   {"answer", std::string(nameOf(state.answer))},
                   {"ms", state.tookMs}};
  return finding;
}

Finding judgeWhole(bool hasCli, bool isReady, bool isFull) {
  Finding finding{"agent", "agent"};
  finding.facts = {{"ready", isReady}, {"startable", hasCli && !isFull}};
  if (isReady) {
    finding.text = "one is ready, the host uses it";
    if (hasCli) return finding;
    finding.health = Health::note;
    finding.text += "; should it end, the host could start none: its program was not found";
    finding.remedy = cliRemedy;
  } else if (!hasCli) {
    finding.health = Health::problem;
    finding.text = "none runs, and the program that starts one was not found";
    finding.remedy = cliRemedy;
  } else if (isFull) {
    finding.health = Health::problem;
    finding.text = "none is ready, and other programs have all of its ports";
    finding.remedy = "end one of the programs that listen on ports 8090 to 8094";
  } else {
    finding.text = "none runs, the host starts one when it needs it";
  }
  return finding;
}

}  // namespace

std::vector<PortState> askAgentPorts(std::uint32_t limitMs) {
  PortScan scan(agentPorts, limitMs);
  std::vector<PortState> states;
  for (std::size_t i = 0; i < agentPorts.size(); ++i) states.push_back(scan.wait(i));
  return states;
}

std::vector<CliLook> lookAtCliSources() {
  std::vector<CliLook> looks;
  for (std::size_t i = 0; i < cliSourceCount; ++i) looks.push_back(lookAtCliSource(i));
  return looks;
}

Findings judgeAgent(const std::vector<CliLook>& looks, const std::vector<PortState>& ports) {
  Findings findings;
  bool hasCli = false;
  for (std::size_t i = 0; i < looks.size(); ++i) {
    const bool isUsed = !hasCli && looks[i].outcome == CliOutcome::found;
    findings.push_back(judgeSource(looks[i], i, isUsed));
    hasCli = hasCli || isUsed;
  }
  for (const PortState& state : ports) findings.push_back(judgePort(state));
  const auto is = [](Readiness wanted) {
    return [=](const PortState& state) { return state.answer == wanted; };
  };
  findings.push_back(judgeWhole(hasCli, std::ranges::any_of(ports, is(Readiness::ready)),
                                std::ranges::none_of(ports, is(Readiness::none))));
  return findings;
}

}  // namespace media::win::chrome_inspect
