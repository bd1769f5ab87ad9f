#include "agent_process/supervision.h"

#include "agent/agent_end.h"
#include "agent/current_agent.h"
#include "agent/running_turns.h"
#include "agent_process/agent_launch.h"
#include "agent_process/cli_dir.h"
#include "agent_process/cli_location.h"
#include "channel/host_log.h"
#include "platform/clock.h"
#include "support/agent_double.h"
#include "support/child_probe.h"
#include "support/failing_new.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

std::string heard;  // by the listener

void hear(const char* what, const AgentId& agent) {
  heard += what + std::to_string(agent.port) + " " + std::to_string(agent.serial) + ";";
}

const AgentListener listener = {[](const AgentId& agent) { hear("ready ", agent); },
                                [](const AgentId& agent) { hear("stopped ", agent); }};

std::vector<std::string> logged() {
  std::vector<std::string> texts;
  for (const json& line : takeDebugLogEvents(maxQueuedLogLines)) {
    texts.push_back(line.at(0).at("level").get<std::string>() + " " +
                    line.at(0).at("text").get<std::string>());
  }
  return texts;
}

// Nothing is installed, and no agent answers on the ports.
class EnsureAgent : public testing::Test {
 protected:
  EnsureAgent() { setAgentListener(listener); }

  const TestFolder folder_;
  const EnvironmentVariable path_{"PATH", toUtf8(folder_.path().wstring())};
  const EnvironmentVariable local_{"LOCALAPPDATA", toUtf8(folder_.path().wstring())};
  std::string error_ = "untouched";
};

TEST_F(EnsureAgent, ReturnsThePortThatAnswered) {
  AgentDouble agent([](ServedConnection&) {});
  agent.adopt();
  EXPECT_EQ(ensureAgent(error_), agent.port());
  EXPECT_EQ(heard, "ready " + std::to_string(agent.port()) + " 0;");
  EXPECT_EQ(error_, "untouched");
  EXPECT_EQ(logged(), std::vector<std::string>{"trace reusing llm agent on port " +
                                               std::to_string(agent.port())});
}

TEST_F(EnsureAgent, FailsWithoutAnAgentAndItsProgram) {
  ScriptedServer foreign(sendInPieces(answerText("", "404 No"), 100));
  adoptFoundAgent(foreign.port());
  EXPECT_FALSE(ensureAgent(error_));
  EXPECT_EQ(error_, "morva-viewer-cli.exe is not on PATH");
  EXPECT_EQ(logged().back(), "error morva-viewer-cli.exe is not on PATH");
  EXPECT_EQ(heard, "");
}

TEST_F(EnsureAgent, FailsWhenNoneOfFiveStartsBecomesReady) {
  std::ofstream(folder_.path() / cliNameUtf8) << "no program";
  saveCliDir(folder_.path().wstring());
  EXPECT_FALSE(ensureAgent(error_));
  EXPECT_EQ(error_, "llm agent --serve did not become ready");
  const std::vector<std::string> lines = logged();
  ASSERT_EQ(lines.size(), 1U + agentPorts.size() + 1U);  // where it is, the starts, the error
  for (std::size_t i = 1; i <= agentPorts.size(); ++i) {
    const std::string file = toUtf8((folder_.path() / cliNameUtf8).wstring());
    EXPECT_THAT(lines[i], testing::StartsWith("error spawn failed " + file + " win32="));
    EXPECT_GT(std::stoi(lines[i].substr(lines[i].rfind('=') + 1)), 0);
  }
  EXPECT_EQ(heard, "");
}

TEST_F(EnsureAgent, IsCancelledByTheEndOfTheHost) {
  cancelAllAgentRequests();
  EXPECT_FALSE(ensureAgent(error_));
  EXPECT_EQ(error_, "cancelled");
}

TEST_F(EnsureAgent, CountsAsActivity) {
  AgentDouble agent([](ServedConnection&) {});
  const std::uint64_t serial = adoptOwnedAgent(idleChild(), agent.port());
  const std::uint64_t start = tickCountMs() - 200'000;  // the clock of the looks: long ago
  for (std::uint64_t at = 0; at < 60'000; at += 5000) EXPECT_FALSE(stopIdleAgent(start + at));
  EXPECT_TRUE(ensureAgent(error_));
  EXPECT_FALSE(stopIdleAgent(start + 60'000));
  stopOwnedAgent(serial);
}

TEST(EndIdleAgent, ReportsThatTheOwnedAgentWasEnded) {
  setAgentListener(listener);
  (void)adoptOwnedAgent(idleChild(), 8090);
  const std::uint64_t start = tickCountMs();
  for (std::uint64_t at = 0; at < 60'000; at += 5000) endIdleAgent(start + at);
  EXPECT_EQ(heard, "");
  endIdleAgent(start + 70'000);
  EXPECT_EQ(heard, "stopped 8090 1;");
  EXPECT_EQ(logged(),
            std::vector<std::string>{"warn idle: owned llm agent stopped after 60s quiet"});
  EXPECT_EQ(currentAgentPort(), 0);
  endIdleAgent(start + 75'000);
  EXPECT_EQ(heard, "stopped 8090 1;");
}

TEST(EndIdleAgent, ReportsTheEndWhateverMemoryIsMissing) {
  setAgentListener(listener);
  bool failed = true;
  for (long number = 0; failed; ++number) {
    heard.clear();
    (void)adoptOwnedAgent(idleChild(), 8090);
    const std::uint64_t start = tickCountMs();
    for (std::uint64_t at = 0; at < 60'000; at += 5000) endIdleAgent(start + at);
    {
      const FailingNew failing(number);
      endIdleAgent(start + 60'000);
      failed = FailingNew::happened();
    }
    EXPECT_TRUE(heard.starts_with("stopped 8090 ")) << number << heard;
  }
}

TEST(EndUnusedAgent, ReportsItsEndUnlessItIsInUse) {
  setAgentListener(listener);
  (void)adoptOwnedAgent(idleChild(), 8090);
  {
    const AgentInUse use;
    endUnusedAgent();
    EXPECT_EQ(heard, "");
  }
  endUnusedAgent();
  endUnusedAgent();
  EXPECT_EQ(heard, "stopped 8090 1;");
}

TEST(AgentCommandLine, IsExact) {
  EXPECT_EQ(agentCommandLine(L"C:\\x y\\morva-viewer-cli.exe", 8090),
            L"\"C:\\x y\\morva-viewer-cli.exe\" --no-gui --log-level trace llm agent --serve "
            L"--host 127.0.0.1 --port 8090 --consent-ui stream");
}

}  // namespace
}  // namespace media::win::chrome_inspect
