// What the twin does at every cut of the bytes and in every step. Wine's client mistakes some cuts,
// and does not end a step that waits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>

#include "platform/clock.h"
#include "support/http_outcome.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

const std::string okHead = "HTTP/1.1 200 OK\r\n";
const std::string chunkedHead = okHead + "Transfer-Encoding: chunked\r\n\r\n";

const HttpAnswerCase answerCases[] = {
    {"chunks", chunkedHead + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", true, 200, true,
     "hello world"},
    {"chunk cut short", chunkedHead + "5\r\nhello\r\n6\r\n wo", true, 200, false, "hello wo"},
    {"no last chunk", chunkedHead + "5\r\nhello\r\n", true, 200, false, "hello"},
    {"closed inside the header", okHead + "Content-Le", false, 0, false, ""},
    {"after an interim answer", "HTTP/1.1 100 Continue\r\n\r\n" + okHead + "\r\nx", true, 200, true,
     "x"},
};

TEST(HttpExchange, TakesFramingApartAtEveryCut) {
  for (const HttpAnswerCase& c : answerCases) {
    for (std::size_t pieceSize = 1; pieceSize <= c.answer.size(); ++pieceSize) {
      expectAnswer(c, pieceSize);
    }
  }
}

constexpr HttpTimeouts endless = {0, 0, 0, 0};
const std::string moreThanIsBuffered(64'000'000, 'x');  // at both ends of a connection

// A listener that never takes a connection; without room a connect waits.
class DeafListener {
 public:
  explicit DeafListener(int room)
      : listener_(listenOnLoopback(port_, room)), filler_(connectToLoopback(port_)) {}

  std::shared_ptr<HttpExchange> open(const HttpTimeouts& limits) const {
    return openTo(port_, limits);
  }

  static std::shared_ptr<HttpExchange> openTo(std::uint16_t port, const HttpTimeouts& limits) {
    std::shared_ptr<HttpExchange> exchange;
    EXPECT_EQ(openHttpExchange(port, L"POST", L"/", limits, exchange), HttpOpenResult::ok);
    return exchange;
  }

 private:
  std::uint16_t port_ = 0;
  LoopbackSocket listener_;
  LoopbackSocket filler_;
};

bool isAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string stat(std::istreambuf_iterator<char>(file), {});
  return stat.find(") S ") != stat.npos;
}

// Aborts once `step`, which this thread runs, waits in the system.
void expectAbortEnds(HttpExchange& exchange, const std::function<bool()>& step) {
  TestThread aborter([&exchange, waiting = gettid()] {
    while (!isAsleep(waiting)) sleepMs(1);
    exchange.abort();
  });
  EXPECT_FALSE(step());
}

TEST(HttpAbort, EndsWhicheverStepWaits) {
  const DeafListener full(0);
  const auto connecting = full.open(endless);
  expectAbortEnds(*connecting, [&] { return connecting->send(""); });
  const DeafListener idle(8);
  const auto sending = idle.open(endless);
  expectAbortEnds(*sending, [&] { return sending->send(moreThanIsBuffered); });

  ScriptedServer mute([](ServedConnection& c) { EXPECT_TRUE(c.waitForClient()); });
  {
    const auto receiving = DeafListener::openTo(mute.port(), endless);
    ASSERT_TRUE(receiving->send(""));
    expectAbortEnds(*receiving, [&] { return receiving->receive(); });
  }
  ScriptedServer slow(
      [](ServedConnection& c) { EXPECT_TRUE(c.send(okHead + "\r\nx") && c.waitForClient()); });
  const auto reading = DeafListener::openTo(slow.port(), endless);
  std::size_t count = 0;
  char byte = 0;
  ASSERT_TRUE(reading->send("") && reading->receive() && reading->available(count) &&
              reading->read(&byte, 1, count));
  expectAbortEnds(*reading, [&] { return reading->available(count); });
}

TEST(HttpExchange, GivesUpConnectingAndSendingAfterTheirTimeOuts) {
  const struct {
    int room;
    HttpTimeouts limits;
  } cases[] = {{0, {0, 200, 0, 0}}, {8, {0, 0, 200, 0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.room);
    const DeafListener listener(c.room);
    const auto exchange = listener.open(c.limits);
    const std::uint64_t before = tickCountMs();
    EXPECT_FALSE(exchange->send(moreThanIsBuffered));
    EXPECT_GE(tickCountMs() - before, 190U);
    EXPECT_LT(tickCountMs() - before, 5000U);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
