#include "toolserver/connection.h"

#include "support/loopback_socket.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::int32_t port = 39270;
const std::string token(64, 'a');
const std::string failure = "Content-Length: 12\r\nConnection: close\r\n\r\n{\"ok\":false}";

// What comes back for `request`, whose sender then ends its direction.
std::string answerTo(const std::string& request) {
  std::uint16_t listening = 0;
  const OwnedSocket listener = listenOnLoopback(listening, 1);
  const OwnedSocket client = connectToLoopback(listening);
  OwnedSocket served(acceptFrom(listener).release());
  TestThread server([&served] {
    handleConnection(served, port, token);
    served.reset();
  });
  EXPECT_TRUE(sendTo(client, request));
  finishSending(client);
  std::string answer;
  char buffer[4096];
  while (const std::size_t got = receiveFrom(client, buffer, sizeof buffer)) {
    answer.append(buffer, got);
  }
  return answer;
}

std::string requestWith(const std::string& line, const std::string& given) {
  return line + "\r\nHost: localhost:39270\r\nX-Morva-Session: " + given + "\r\n\r\n";
}

TEST(HandleConnection, AnswersEachVerdict) {
  const struct {
    const char* name;
    std::string request;
    std::string status;
  } cases[] = {
      {"nothing", "", "400 Bad Request"},
      {"malformed", "GET / HTTP/1.0\r\n\r\n", "400 Bad Request"},
      {"no host", "GET / HTTP/1.1\r\n\r\n", "400 Bad Request"},
      {"wrong token", requestWith("GET / HTTP/1.1", "b"), "401 Unauthorized"},
      {"no origin", requestWith("GET / HTTP/1.1", token), "403 Forbidden"},
      {"preflight from nowhere", requestWith("OPTIONS / HTTP/1.1", token), "403 Forbidden"},
      {"no route", requestWith("GET /api/agent-toolsX HTTP/1.1", token), "404 Not Found"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(answerTo(c.request),
              "HTTP/1.1 " + c.status + "\r\nContent-Type: application/json\r\n" + failure)
        << c.name;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
