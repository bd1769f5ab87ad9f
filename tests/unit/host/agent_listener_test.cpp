#include "host/agent_listener.h"

#include "agent/current_agent.h"
#include "agent_process/supervision.h"
#include "support/agent_double.h"
#include "support/captured_output.h"
#include "support/child_probe.h"
#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(AgentFollower, RegistersToolsReportsTheAgentAndFollowsItsEvents) {
  const EnvironmentVariable tool("MORVA_CHROME_HOST_TOOL", "dev=http://127.0.0.1:9");
  CapturedOutput output;
  AgentDouble agent([](ServedConnection& connection) { answerWith(connection, "{}"); });
  agent.adopt();
  setAgentListener(agentFollower());
  std::string error;
  ASSERT_TRUE(ensureAgent(error)) << error;
  EXPECT_EQ(bodyOf(agent.waitForRequests("POST /v1/host-tool-providers", 1).at(0)),
            R"({"id":"dev","url":"http://127.0.0.1:9"})");
  EXPECT_EQ(agent.waitForRequests("GET /v1/chat/events", 1).size(), 1U);
  const auto status = nlohmann::json::parse(output.finish().at(0));
  EXPECT_EQ(status.at("kind"), "hostStatus");
  EXPECT_EQ(status.at("agent"), "connected");
}

std::string states(const CapturedOutput::Frames& frames) {
  std::string all;
  for (const std::string& frame : frames) {
    const json message = json::parse(frame);
    if (message.at("kind") == "hostStatus") all += message.at("agent").get<std::string>() + ";";
  }
  return all;
}

// The idle stop ends an agent and, before it says so, a successor has come.
TEST(AgentFollower, ReportsNoEndBehindASuccessorAndNoAgentThatHasEnded) {
  CapturedOutput output;
  Gate over;
  AgentDouble agent([&over](ServedConnection& connection) {
    if (!connection.request.starts_with("GET /v1/chat/events")) return answerWith(connection, "{}");
    (void)connection.send(std::string(streamHead) + "data: {\"method\":\"m\",\"args\":[]}\n\n");
    over.wait();
  });
  const AgentListener follows = agentFollower();
  const AgentId first{agent.port(), adoptOwnedAgent(idleChild(), agent.port())};
  follows.ready(first);
  (void)agent.waitForRequests("GET /v1/chat/events", 1);  // or the next one aborts it before
  const AgentId second{agent.port(), adoptOwnedAgent(idleChild(), agent.port())};
  follows.ready(second);
  follows.stopped(first);
  follows.ready(first);   // it answered before it was ended
  follows.ready(second);  // whose events are read still
  (void)agent.waitForRequests("GET /v1/chat/events", 2);
  EXPECT_EQ(stopUnusedAgent(), second);
  follows.stopped(second);
  over.open();
  EXPECT_EQ(states(output.finish()), "connected;connected;connected;disconnected;");
  EXPECT_EQ(agent.requests("GET /v1/chat/events").size(), 2U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
