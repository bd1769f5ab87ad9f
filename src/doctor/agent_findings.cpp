#include "doctor/agent_findings.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "agent/agent_request.h"
#include "agent/agent_state.h"
#include "common/detached.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using SteadyClock = std::chrono::steady_clock;
using Answer = PortState::Answer;

// --- Looking ---

struct Survey {
  std::mutex mutex;  // guards what follows
  std::condition_variable changed;
  std::vector<PortState> ports;
  std::size_t open = 0;
};

std::int64_t msSince(SteadyClock::time_point begin) {
  using std::chrono::milliseconds;
  return std::chrono::duration_cast<milliseconds>(SteadyClock::now() - begin).count();
}

Answer answerOf(const AgentResponse& response) {
  if (isReadyAnswer(response)) return Answer::ready;
  if (response.status == 200) return Answer::notReady;
  return response.status != 0 ? Answer::foreign : Answer::none;
}

void askPort(const std::shared_ptr<Survey>& survey, std::size_t index, std::int32_t port,
             std::uint32_t limitMs) {
  const auto begin = SteadyClock::now();
  const Answer answer = answerOf(askAgentReady(port, limitMs));
  const std::lock_guard lock(survey->mutex);
  survey->ports.at(index) = {port, answer, msSince(begin)};
  --survey->open;
  survey->changed.notify_all();
}

// --- Judging ---

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
    case Answer::ready:
      return "an agent is ready" + time;
    case Answer::notReady:
      return "an agent answers that it is not ready" + time;
    case Answer::foreign:
      return "another program answers" + time;
    case Answer::none:
      return "nobody answers" + time;
  }
  return {};
}

const char* nameOf(Answer answer) {
  switch (answer) {
    case Answer::ready:
      return "ready";
    case Answer::notReady:
      return "notReady";
    case Answer::foreign:
      return "foreign";
    case Answer::none:
      break;
  }
  return "none";
}

Finding judgePort(const PortState& state) {
  const std::string port = std::to_string(state.port);
  Finding finding{"agent.port." + port, "port " + port};
  finding.health = state.answer == Answer::ready ? Health::ok : Health::note;
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
  const auto survey = std::make_shared<Survey>();
  for (std::int32_t i = 0; i < agentPortCount; ++i) {
    survey->ports.push_back({firstAgentPort + i, Answer::none, limitMs});
  }
  survey->open = survey->ports.size();
  for (std::size_t i = 0; i < static_cast<std::size_t>(agentPortCount); ++i) {
    const std::int32_t port = firstAgentPort + static_cast<std::int32_t>(i);
    if (!runDetached("port survey", [=] { askPort(survey, i, port, limitMs); })) {
      askPort(survey, i, port, limitMs);
    }
  }
  std::unique_lock lock(survey->mutex);
  survey->changed.wait_for(lock, std::chrono::milliseconds(limitMs),
                           [&] { return survey->open == 0; });
  return survey->ports;
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
  const auto is = [](Answer wanted) {
    return [=](const PortState& state) { return state.answer == wanted; };
  };
  findings.push_back(judgeWhole(hasCli, std::ranges::any_of(ports, is(Answer::ready)),
                                std::ranges::none_of(ports, is(Answer::none))));
  return findings;
}

}  // namespace media::win::chrome_inspect
