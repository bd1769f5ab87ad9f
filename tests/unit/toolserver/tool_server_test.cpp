#include "toolserver/tool_server.h"

#include "platform/sockets.h"
#include "support/loopback_socket.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

std::string statusOf(const std::string& token) {
  const auto port = static_cast<std::uint16_t>(toolServerPort());
  const OwnedSocket client = connectToLoopback(port);
  EXPECT_TRUE(
      sendTo(client, "GET /api/agent-tools HTTP/1.1\r\nHost: localhost:" + std::to_string(port) +
                         "\r\nX-Morva-Session: " + token + "\r\n\r\n"));
  std::string answer;
  char buffer[4096];
  while (const std::size_t got = receiveFrom(client, buffer, sizeof buffer)) {
    answer.append(buffer, got);
  }
  return answer.substr(0, answer.find("\r\n"));
}

TEST(ToolServer, IsAbsentUntilItIsStarted) {
  EXPECT_EQ(toolServerPort(), 0);
  EXPECT_EQ(sessionToken() + agentToolsUrl() + contextFileUrl(), "");
}

TEST(ToolServer, ListensOnTheFirstFreePortForWhoeverHasTheToken) {
  ASSERT_TRUE(startSockets());
  OwnedSocket taken;
  ASSERT_TRUE(openSocket(taken));
  std::int32_t first = firstToolServerPort;  // that this test could take
  while (!bindLoopback(taken, static_cast<std::uint16_t>(first))) ++first;
  ASSERT_TRUE(listenOn(taken, 1));  // where a bound port alone could be bound again
  startToolServer();
  const std::string base = "http://127.0.0.1:" + std::to_string(toolServerPort());
  EXPECT_GT(toolServerPort(), first);
  EXPECT_LE(toolServerPort(), lastToolServerPort);
  EXPECT_EQ(agentToolsUrl(), base + "/api/agent-tools");
  EXPECT_EQ(contextFileUrl(), base + "/api/context-file");
  EXPECT_EQ(sessionToken().size(), 64U);
  EXPECT_EQ(sessionToken().find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(statusOf(sessionToken()), "HTTP/1.1 200 OK");
  EXPECT_EQ(statusOf("x"), "HTTP/1.1 401 Unauthorized");
}

}  // namespace
}  // namespace media::win::chrome_inspect
