#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/http_client.h"
#include "support/gate.h"
#include "support/http_outcome.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

constexpr HttpTimeouts endless = {0, 0, 0, 0};

// A body larger than what both ends of a connection hold for a reader that does not come.
std::string moreThanIsBuffered() {
  std::string body;
  body.resize(64'000'000, 'x');
  return body;
}

// A listener that nobody serves and whose queue is full, so that a connect waits.
class FullListener {
 public:
  FullListener() : listener_(listenOnLoopback(port_, 0)), filler_(connectToLoopback(port_)) {}
  std::uint16_t port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  LoopbackSocket listener_;
  LoopbackSocket filler_;
};

std::shared_ptr<HttpExchange> open(std::uint16_t port, const HttpTimeouts& limits) {
  std::shared_ptr<HttpExchange> exchange;
  EXPECT_EQ(openHttpExchange(port, L"POST", L"/", limits, exchange), HttpOpenResult::ok);
  return exchange;
}

// Nothing tells when a thread has begun to wait inside a system call; usually it has by then.
void abortSoon(const std::shared_ptr<HttpExchange>& exchange) {
  sleepMs(30);
  exchange->abort();
}

TEST(HttpAbort, EndsAConnectThatWaits) {
  const FullListener server;
  const auto exchange = open(server.port(), endless);
  TestThread aborter([exchange] { abortSoon(exchange); });
  EXPECT_FALSE(exchange->send(""));
}

TEST(HttpExchange, GivesUpConnectingAfterItsTimeOut) {
  const FullListener server;
  const auto exchange = open(server.port(), {0, 200, 0, 0});
  const std::uint64_t before = tickCountMs();
  EXPECT_FALSE(exchange->send(""));
  EXPECT_GE(tickCountMs() - before, 190U);
  EXPECT_LT(tickCountMs() - before, 5000U);
}

TEST(HttpAbort, EndsASendThatWaits) {
  std::uint16_t port = 0;
  const LoopbackSocket listener = listenOnLoopback(port, 8);  // accepts, and never reads
  const auto exchange = open(port, endless);
  TestThread aborter([exchange] { abortSoon(exchange); });
  EXPECT_FALSE(exchange->send(moreThanIsBuffered()));
}

TEST(HttpExchange, GivesUpSendingAfterItsTimeOut) {
  std::uint16_t port = 0;
  const LoopbackSocket listener = listenOnLoopback(port, 8);
  const auto exchange = open(port, {0, 0, 200, 0});
  EXPECT_FALSE(exchange->send(moreThanIsBuffered()));
}

TEST(HttpAbort, EndsTheWaitForTheHeader) {
  Gate asked;
  ScriptedServer server([&asked](ServedConnection& connection) {
    asked.open();
    EXPECT_TRUE(connection.waitForClient());
  });
  const auto exchange = open(server.port(), endless);
  TestThread aborter([&asked, exchange] {
    asked.wait();
    abortSoon(exchange);
  });
  ASSERT_TRUE(exchange->send(""));
  EXPECT_FALSE(exchange->receive());
}

TEST(HttpAbort, EndsTheWaitForABodyPiece) {
  Gate answered;
  ScriptedServer server([&answered](ServedConnection& connection) {
    EXPECT_TRUE(connection.send("HTTP/1.1 200 OK\r\n\r\nfirst"));
    answered.open();
    EXPECT_TRUE(connection.waitForClient());
  });
  const auto exchange = open(server.port(), endless);
  TestThread aborter([&answered, exchange] {
    answered.wait();
    abortSoon(exchange);
  });
  HttpOutcome outcome;
  runExchange(*exchange, "", outcome);
  EXPECT_TRUE(outcome.received);
  EXPECT_EQ(outcome.body(), "first");
  EXPECT_FALSE(outcome.whole);
}

}  // namespace
}  // namespace media::win::chrome_inspect
