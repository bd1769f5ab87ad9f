#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/http_client.h"
#include "support/http_outcome.h"
#include "support/open_handles.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

const std::string okHead = "HTTP/1.1 200 OK\r\n";

// Runs the steps and aborts before the step with the number `at`; gives the number of the first
// step that failed.
int firstFailure(HttpExchange& exchange, int at) {
  char byte = 0;
  std::size_t count = 0;
  for (int step = 0; step < 4; ++step) {
    if (step == at) exchange.abort();
    const bool ok = step == 0   ? exchange.send("{}")
                    : step == 1 ? exchange.receive()
                    : step == 2 ? exchange.available(count)
                                : exchange.read(&byte, 1, count);
    if (!ok) return step;
  }
  return 4;
}

TEST(HttpAbort, FailsTheNextStepWhicheverItIs) {
  for (int at = 0; at <= 4; ++at) {
    SCOPED_TRACE(at);
    ScriptedServer server(sendInPieces(okHead + "Content-Length: 5\r\n\r\nhello", 99));
    std::shared_ptr<HttpExchange> exchange;
    ASSERT_EQ(openHttpExchange(server.port(), L"POST", L"/", {}, exchange), HttpOpenResult::ok);
    EXPECT_EQ(firstFailure(*exchange, at), at);
  }
}

TEST(HttpAbort, MakesEveryLaterStepFailToo) {
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 5\r\n\r\nhello", 99));
  std::shared_ptr<HttpExchange> exchange;
  ASSERT_EQ(openHttpExchange(server.port(), L"GET", L"/", {}, exchange), HttpOpenResult::ok);
  ASSERT_TRUE(exchange->send("") && exchange->receive());
  EXPECT_EQ(exchange->status(), 200U);
  exchange->abort();
  exchange->abort();
  std::size_t count = 0;
  char byte = 0;
  EXPECT_FALSE(exchange->available(count));
  EXPECT_FALSE(exchange->read(&byte, 1, count));
  EXPECT_EQ(exchange->status(), 0U);
}

TEST(HttpAbort, OfAnExchangeThatNeverBeganIsHarmless) {
  std::shared_ptr<HttpExchange> exchange;
  ASSERT_EQ(openHttpExchange(8090, L"GET", L"/", {}, exchange), HttpOpenResult::ok);
  exchange->abort();
  exchange.reset();
  SUCCEED();
}

// The answer tells which request it belongs to, in pieces, so that an abort finds it under way.
void answerWithItsPath(ServedConnection& connection) {
  const std::size_t from = connection.request.find('/');
  if (from == connection.request.npos) return;  // the client left before it had sent its request
  const std::string path =
      connection.request.substr(from, connection.request.find(' ', from) - from);
  if (!connection.send(okHead) || !connection.send("\r\n")) return;
  for (int i = 0; i < 3; ++i) {
    if (!connection.send(path + "\n")) return;
  }
}

// One exchange, aborted by another thread at a moment that depends on `number`. False when its
// reader was given what is not its own.
bool exchangeAndAbort(std::uint16_t port, int number) {
  const std::string id = "/id-" + std::to_string(number);
  std::shared_ptr<HttpExchange> exchange;
  if (openHttpExchange(port, L"GET", std::wstring(id.begin(), id.end()), {}, exchange) !=
      HttpOpenResult::ok) {
    return false;
  }
  HttpOutcome outcome;
  {
    TestThread aborter([exchange, spins = number * 37 % 2000] {
      for (std::atomic<int> i = 0; i < spins; ++i) {
      }
      exchange->abort();
    });
    runExchange(*exchange, "", outcome);
  }
  const std::string wanted = id + "\n" + id + "\n" + id + "\n";
  return wanted.starts_with(outcome.body());
}

TEST(HttpAbort, ClosesEachHandleOnceHoweverManyThreadsAbort) {
  constexpr int threadCount = 8;
  constexpr int exchangesPerThread = 150;
  (void)exchangeAndAbort(portWithoutListener(), 0);  // what the system opens once
  const std::size_t before = openHandleCount();
  std::atomic<int> wrong = 0;
  {
    std::vector<std::unique_ptr<ScriptedServer>> servers;
    std::vector<std::unique_ptr<TestThread>> threads;
    for (int i = 0; i < threadCount; ++i) {
      servers.push_back(std::make_unique<ScriptedServer>(answerWithItsPath));
      threads.push_back(std::make_unique<TestThread>([i, &wrong, port = servers.back()->port()] {
        for (int n = 0; n < exchangesPerThread; ++n) {
          if (!exchangeAndAbort(port, i * exchangesPerThread + n)) ++wrong;
        }
      }));
    }
    threads.clear();
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_LE(openHandleCount(), before + handlesOfTheSystem);
}

}  // namespace
}  // namespace media::win::chrome_inspect
