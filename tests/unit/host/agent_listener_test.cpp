#include "host/agent_listener.h"

#include "agent_process/supervision.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(FollowAgent, RegistersToolsReportsTheAgentAndFollowsItsEvents) {
  const EnvironmentVariable tool("MORVA_CHROME_HOST_TOOL", "dev=http://127.0.0.1:9");
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, "{}"); });
  agent.adopt();
  followAgent();
  std::string error;
  ASSERT_TRUE(ensureAgent(error)) << error;
  EXPECT_EQ(bodyOf(agent.waitForRequests("POST /v1/host-tool-providers", 1).at(0)),
            R"({"id":"dev","url":"http://127.0.0.1:9"})");
  EXPECT_EQ(agent.waitForRequests("GET /v1/chat/events", 1).size(), 1U);
  const auto status = nlohmann::json::parse(output.finish().at(0));
  EXPECT_EQ(status.at("kind"), "hostStatus");
  EXPECT_EQ(status.at("agent"), "connected");
}

}  // namespace
}  // namespace media::win::chrome_inspect
