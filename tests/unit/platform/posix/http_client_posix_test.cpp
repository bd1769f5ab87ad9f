// What Wine's client does not do: an abort ends each step that waits.
#include <unistd.h>

#include "platform/clock.h"
#include "support/http_outcome.h"
#include "support/loopback_socket.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr HttpTimeouts endless = {0, 0, 0, 0};
// More than both ends of a connection keep. Not a constant: every test would start with it.
std::string moreThanIsBuffered() { return std::string(64'000'000, 'x'); }

// A listener that never takes a connection; without room a connect waits.
struct DeafListener {
  explicit DeafListener(int room)
      : listener(listenOnLoopback(port, room)), filler(connectToLoopback(port)) {}
  std::uint16_t port = 0;
  OwnedSocket listener;
  OwnedSocket filler;
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
  const auto connecting = openExchange(full.port, endless);
  expectAbortEnds(*connecting, [&] { return connecting->send(""); });
  const DeafListener idle(8);
  const auto sending = openExchange(idle.port, endless);
  expectAbortEnds(*sending, [&] { return sending->send(moreThanIsBuffered()); });

  ScriptedServer mute([](ServedConnection& c) { EXPECT_TRUE(c.waitForClient()); });
  {
    const auto receiving = openExchange(mute.port(), endless);
    ASSERT_TRUE(receiving->send(""));
    expectAbortEnds(*receiving, [&] { return receiving->receive(); });
  }
  ScriptedServer slow(
      [](ServedConnection& c) { EXPECT_TRUE(c.send(okHead + "\r\nx") && c.waitForClient()); });
  const auto reading = openExchange(slow.port(), endless);
  std::size_t count = 0;
  char byte = 0;
  ASSERT_TRUE(reading->send("") && reading->receive() && reading->available(count) &&
              reading->read(&byte, 1, count));
  expectAbortEnds(*reading, [&] { return reading->available(count); });
}

TEST(HttpExchange, GivesUpConnectingAndSendingAfterTheirTimeOuts) {
  for (const auto& [room, limits] :
       {std::pair<int, HttpTimeouts>{0, {0, 200, 0, 0}}, {8, {0, 0, 200, 0}}}) {
    SCOPED_TRACE(room);
    const DeafListener listener(room);
    const auto exchange = openExchange(listener.port, limits);
    const std::uint64_t before = tickCountMs();
    EXPECT_FALSE(exchange->send(moreThanIsBuffered()));
    EXPECT_GE(tickCountMs() - before, 190U);
    EXPECT_LT(tickCountMs() - before, 5000U);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
