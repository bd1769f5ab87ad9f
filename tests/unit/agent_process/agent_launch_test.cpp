#include "agent_process/agent_launch.h"

#include "agent/agent_end.h"
#include "agent/current_agent.h"
#include "channel/host_log.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(AgentCommandLine, IsExact) {
  EXPECT_EQ(agentCommandLine(L"C:\\x y\\morva-viewer-cli.exe", 8090),
            L"\"C:\\x y\\morva-viewer-cli.exe\" --no-gui --log-level trace llm agent --serve "
            L"--host 127.0.0.1 --port 8090 --consent-ui stream");
}

TEST(SpawnAgent, SaysWhyThereIsNoChild) {
  EXPECT_FALSE(spawnAgent({L"/no/such/program", "/no/such/program"}, 8090));
  const auto lines = takeDebugLogEvents(40);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0][0].at("level"), "error");
  const std::string text = lines[0][0].at("text");
  EXPECT_TRUE(text.starts_with("spawn failed /no/such/program win32=")) << text;
  EXPECT_GT(std::stoi(text.substr(text.find('=') + 1)), 0);
  EXPECT_EQ(currentAgentPort(), 0);
}

TEST(SpawnAgent, StartsNothingWhenTheHostIsEnding) {
  cancelAllAgentRequests();
  EXPECT_FALSE(spawnAgent({L"/no/such/program", "/no/such/program"}, 8090));
}

}  // namespace
}  // namespace media::win::chrome_inspect
