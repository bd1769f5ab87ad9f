// The server as a whole, with the connections that it serves.
#include "toolserver/tool_server.h"

#include "support/loopback_socket.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// What comes back for `request`, whose sender then ends its direction.
std::string answerTo(const std::string& request) {
  const OwnedSocket client = connectToLoopback(static_cast<std::uint16_t>(toolServerPort()));
  EXPECT_TRUE(sendTo(client, request));
  finishSending(client);
  return receiveToEnd(client);
}

std::string requestWith(const std::string& line, const std::string& token) {
  return line + " HTTP/1.1\r\nHost: localhost:" + std::to_string(toolServerPort()) +
         "\r\nX-Morva-Session: " + token + "\r\n\r\n";
}

TEST(ToolServer, IsAbsentUntilItIsStarted) {
  EXPECT_EQ(toolServerPort(), 0);
  EXPECT_EQ(agentToolsUrl() + contextFileUrl(), "");
}

TEST(ToolServer, ListensOnTheFirstFreePort) {
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
}

TEST(ToolServer, AnswersEachVerdict) {
  startToolServer();
  const std::string& token = sessionToken();
  EXPECT_TRUE(answerTo(requestWith("GET /api/agent-tools", token)).starts_with("HTTP/1.1 200 OK"));
  for (const auto& [request, status] :
       {std::pair{""s, "400 Bad Request"s},
        {"GET / HTTP/1.0\r\n\r\n", "400 Bad Request"},
        {"GET / HTTP/1.1\r\n\r\n", "400 Bad Request"},
        {requestWith("GET /", "b"), "401 Unauthorized"},
        {requestWith("GET /", token), "403 Forbidden"},
        {requestWith("OPTIONS /", token), "403 Forbidden"},
        {requestWith("GET /api/agent-toolsX", token), "404 Not Found"}}) {
    EXPECT_EQ(answerTo(request), "HTTP/1.1 " + status +
                                     "\r\nContent-Type: application/json\r\nContent-Length: 12\r\n"
                                     "Connection: close\r\n\r\n{\"ok\":false}")
        << request;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
