#include "agent/agent_request.h"

#include "agent/agent_end.h"
#include "agent/request_slots.h"
#include "agent/running_turns.h"
#include "platform/clock.h"
#include "support/loopback_socket.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const ChunkSink noSink = [](std::string_view) {};

std::string untilClose(const std::string& body) { return std::string(streamHead) + body; }

struct AnswerCase {
  const char* name;
  std::string answer;
  std::uint32_t status;
  const char* body;
  const char* error;
};

const AnswerCase answerCases[] = {
    {"a whole answer", answerText("abc"), 200, "abc", ""},
    {"not found is an answer", answerText("no", "404 Not Found"), 404, "no", ""},
    {"broken off in the body", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", 200, "abc",
     "agent response truncated"},
    {"closed without a word", "", 0, "", "agent request failed"},
};

// Each kind has the same texts for the same failures.
TEST(AgentRequest, ReportsHowTheExchangeEnded) {
  const RunningTurn turn;
  for (const AnswerCase& c : answerCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(sendInPieces(c.answer, 1));
    const AgentResponse plain = agentRequest(server.port(), L"GET", L"/v1/models", "");
    EXPECT_EQ(plain.status, c.status);
    EXPECT_EQ(plain.error, c.error);
    EXPECT_EQ(plain.body, c.body);
    EXPECT_TRUE(plain.wasSent);

    std::string seen;
    const auto sink = [&seen](std::string_view piece) { seen += piece; };
    const AgentResponse streams[] = {
        agentTurnStream(server.port(), L"/turn", "{}", turn, sink),
        agentFeed(
            server.port(), L"/feed", {CancelSlot::events}, [] { return true; }, sink)};
    for (const AgentResponse& response : streams) {
      EXPECT_EQ(response.status, c.status);
      EXPECT_EQ(response.error, c.error);
      EXPECT_EQ(response.body, "");
    }
    EXPECT_EQ(seen, std::string(c.body) + c.body);
  }
}

TEST(AgentRequest, MakesTheRequestLine) {
  ScriptedServer server(sendInPieces(answerText(""), 1000));
  (void)agentRequest(server.port(), L"DELETE", L"/a\r\nX: y", "");
  (void)agentTurnStream(server.port(), L"/turn", "{\"x\":1}", RunningTurn(), noSink);
  (void)agentFeed(
      server.port(), L"/feed?a=b", {CancelSlot::events}, [] { return true; }, noSink);
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_TRUE(requests[0].starts_with("DELETE /a%0D%0AX:%20y HTTP/1.1\r\n")) << requests[0];
  EXPECT_TRUE(requests[1].starts_with("POST /turn HTTP/1.1\r\n")) << requests[1];
  EXPECT_EQ(bodyOf(requests[1]), "{\"x\":1}");
  EXPECT_TRUE(requests[2].starts_with("GET /feed?a=b HTTP/1.1\r\n")) << requests[2];
  EXPECT_EQ(bodyOf(requests[2]), "");
}

TEST(AgentRequest, NamesTheStepThatCouldNotBeMade) {
  EXPECT_EQ(agentRequest(0, L"GET", L"/", "").error, "winhttp connect failed");
  EXPECT_EQ(agentRequest(1, L"GET X", L"/", "").error, "winhttp request failed");
  const std::uint16_t port = portWithoutListener();
  const AgentResponse refused = agentRequest(port, L"GET", L"/", "");
  EXPECT_EQ(refused.error, "agent request failed");
  EXPECT_FALSE(refused.wasSent);
  stopTurns();
  EXPECT_EQ(agentRequest(port, L"GET", L"/", "").error, "cancelled");
  const RunningTurn turn;
  EXPECT_EQ(agentTurnStream(port, L"/", "", turn, noSink).error, "agent request failed");
}

TEST(AgentRequest, CapsTheBodyOfAPlainRequestOnly) {
  EXPECT_EQ(AnswerLimits().maxBodyBytes, 64U * 1024 * 1024);
  EXPECT_EQ(AnswerLimits().totalMs, 60'000U);
  for (const std::size_t size : {10U, 11U}) {
    ScriptedServer server(sendInPieces(untilClose(std::string(size, 'x')), 1));
    const AgentResponse response =
        agentRequest(server.port(), L"GET", L"/", "", {.maxBodyBytes = 10});
    EXPECT_EQ(response.error, size > 10 ? "agent response truncated" : "");
    EXPECT_EQ(response.status, 200U);
  }
}

TEST(AgentRequest, TakesNoMoreOfAnEndlessBodyThanItsCap) {
  ScriptedServer server([](ServedConnection& connection) {
    (void)connection.send(streamHead);
    while (connection.send(std::string(1 << 20, 'x'))) continue;
  });
  const AgentResponse response =
      agentRequest(server.port(), L"GET", L"/", "", {.maxBodyBytes = 1 << 20});
  EXPECT_EQ(response.error, "agent response truncated");
  EXPECT_LE(response.body.size(), 2U << 20);  // the cap and one read
}

TEST(AgentRequest, EndsADripAtItsDeadline) {
  ScriptedServer server([](ServedConnection& connection) {
    (void)connection.send(streamHead);
    while (connection.send("x")) sleepMs(20);
  });
  const std::uint64_t before = tickCountMs();
  const AgentResponse response = agentRequest(server.port(), L"GET", L"/", "", {.totalMs = 400});
  const std::uint64_t spent = tickCountMs() - before;
  EXPECT_EQ(response.error, "agent response truncated");
  EXPECT_GE(spent + 16, 400U);  // the tick count may be that coarse
  EXPECT_LT(spent, 10'000U);
}

TEST(AgentRequest, IsNotMadeWhenItsOwnerIsCancelledOrTheHostEnds) {
  ScriptedServer server(sendInPieces(answerText(""), 1000));
  const RunningTurn stopped;
  const RunningTurn turn;
  stopTurns();
  EXPECT_EQ(agentTurnStream(server.port(), L"/", "", stopped, noSink).error, "cancelled");
  EXPECT_EQ(agentTurnRequest(server.port(), L"GET", L"/", "", stopped).error, "cancelled");
  EXPECT_EQ(agentFeed(
                server.port(), L"/", {CancelSlot::events}, [] { return false; }, noSink)
                .error,
            "cancelled");
  cancelAllAgentRequests();
  EXPECT_EQ(agentRequest(server.port(), L"GET", L"/", "").error, "cancelled");
  EXPECT_TRUE(server.requests().empty());
}

TEST(AgentRequest, LeavesNothingPublishedWhenTheSinkThrows) {
  ScriptedServer server(sendInPieces(untilClose("abc"), 100));
  const ChunkSink sink = [](std::string_view) { throw std::runtime_error("x"); };
  for (int i = 0; i < 20; ++i) {
    const RunningTurn turn;
    EXPECT_THROW((void)agentTurnStream(server.port(), L"/", "{}", turn, sink), std::runtime_error);
    stopTurns();  // finds no request that is gone
    ASSERT_TRUE(RunningTurn().beginRequest());
    EXPECT_EQ(agentRequest(server.port(), L"GET", L"/", "").body, "abc");
  }
}

// A server that sends the beginning of a body and goes on only when told to.
class HeldServer {
 public:
  ~HeldServer() { goOn(); }
  std::uint16_t port() const { return server_.port(); }
  void goOn() { gate_.open(); }

 private:
  Gate gate_;
  ScriptedServer server_{[this](ServedConnection& connection) {
    (void)connection.send(untilClose("begun"));
    gate_.wait();
  }};
};

// Makes a request whose sink opens the gate, and calls `cancel` on another thread after that.
template <class Request>
std::string errorWhenCancelled(const Request& request, const std::function<void()>& cancel) {
  HeldServer server;
  Gate begun;
  TestThread canceller([&] {
    begun.wait();
    cancel();
    server.goOn();  // some systems only notice with the next byte, or the end
  });
  return request(server.port(), [&begun](std::string_view) { begun.open(); }).error;
}

TEST(AgentRequest, IsCancelledInTheMiddleOfItsBody) {
  const RunningTurn turn;
  const auto stream = [&turn](std::uint16_t port, const ChunkSink& sink) {
    return agentTurnStream(port, L"/", "", turn, sink);
  };
  std::atomic<bool> isCurrent = true;
  const auto feed = [&isCurrent](std::uint16_t port, const ChunkSink& sink) {
    return agentFeed(
        port, L"/", {CancelSlot::realtime}, [&isCurrent] { return isCurrent.load(); }, sink);
  };
  const auto abortFeed = [] { abortRequests(CancelSlot::realtime); };
  EXPECT_EQ(errorWhenCancelled(feed, abortFeed), "agent response truncated");  // nobody asked
  EXPECT_EQ(errorWhenCancelled(feed,
                               [&] {
                                 isCurrent = false;
                                 abortFeed();
                               }),
            "cancelled");
  EXPECT_EQ(errorWhenCancelled(stream, stopTurns), "cancelled");
  const RunningTurn last;
  const auto lastStream = [&last](std::uint16_t port, const ChunkSink& sink) {
    return agentTurnStream(port, L"/", "", last, sink);
  };
  EXPECT_EQ(errorWhenCancelled(lastStream, cancelAllAgentRequests), "cancelled");
}

TEST(AgentRequest, OfATurnIsCollectedAndStopped) {
  Gate asked;
  Gate stopped;
  ScriptedServer server([&](ServedConnection& connection) {
    if (connection.request.starts_with("GET /a ")) return answerWith(connection, "abc");
    asked.open();
    stopped.wait();
  });
  const RunningTurn turn;
  EXPECT_EQ(agentTurnRequest(server.port(), L"GET", L"/a", "", turn).body, "abc");
  TestThread canceller([&] {
    asked.wait();
    stopTurns();
    stopped.open();  // some systems only notice with the end of the connection
  });
  EXPECT_EQ(agentTurnRequest(server.port(), L"GET", L"/", "", turn).error, "cancelled");
}

TEST(AgentRequest, APlainOneIsCancelledByTheEndOfTheHostOnly) {
  Gate asked;
  Gate gate;
  ScriptedServer server([&](ServedConnection& connection) {
    asked.open();
    gate.wait();
    answerWith(connection, "late");
  });
  TestThread canceller([&] {
    asked.wait();
    stopTurns();
    abortRequests(CancelSlot::turn);
    gate.open();
  });
  EXPECT_EQ(agentRequest(server.port(), L"GET", L"/", "").body, "late");

  Gate askedAgain;
  ScriptedServer mute([&](ServedConnection&) { askedAgain.open(); });
  TestThread ending([&] {
    askedAgain.wait();
    cancelAllAgentRequests();
  });
  EXPECT_EQ(agentRequest(mute.port(), L"GET", L"/", "").error, "cancelled");
}

TEST(AgentRequest, ATurnStopsBetweenTwoReads) {
  ScriptedServer server(sendInPieces(untilClose("abcdef"), 1));
  const RunningTurn turn;
  std::string seen;
  const auto sink = [&seen](std::string_view piece) {
    if (seen.empty()) stopTurns();
    seen += piece;
  };
  EXPECT_EQ(agentTurnStream(server.port(), L"/", "", turn, sink).error, "cancelled");
}

// Each server gives its own answer; turns are stopped all the time meanwhile.
TEST(AgentRequest, OtherThreadsNeverMixUpTheirAnswers) {
  constexpr int clients = 3;
  constexpr int rounds = 60;
  std::atomic<int> running = clients;
  std::atomic<int> ended = 0;
  runThreads(clients + 1, [&](int number) {
    if (number == clients) {
      for (; running > 0; sleepMs(2)) stopTurns();
      return;
    }
    const std::string mine(2000, static_cast<char>('a' + number));
    ScriptedServer server(sendInPieces(untilClose(mine), 500));
    for (int i = 0; i < rounds; ++i) {
      std::string seen;
      const RunningTurn turn;
      const AgentResponse response = agentTurnStream(
          server.port(), L"/", "", turn, [&seen](std::string_view piece) { seen += piece; });
      EXPECT_TRUE(mine.starts_with(seen));
      if (response.error.empty()) EXPECT_EQ(seen.size(), mine.size());
      ++ended;
    }
    --running;
  });
  EXPECT_EQ(ended, clients * rounds);
}

}  // namespace
}  // namespace media::win::chrome_inspect
