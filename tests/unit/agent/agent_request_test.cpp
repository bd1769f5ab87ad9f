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

using AnswerCase = std::tuple<const char*, std::string, std::uint32_t, const char*, const char*>;

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
  for (const auto& [name, answer, status, body, error] : answerCases) {
    SCOPED_TRACE(name);
    ScriptedServer server(sendInPieces(answer, 1));
    for (const AgentResponse& plain :
         {agentRequest(server.port(), L"GET", L"/v1/models", ""),
          agentTurnRequest(server.port(), L"GET", L"/v1/models", "", turn)}) {
      EXPECT_EQ(plain.status, status);
      EXPECT_EQ(plain.error, error);
      EXPECT_EQ(plain.body, body);
      EXPECT_TRUE(plain.wasSent);
    }

    std::string seen;
    const auto sink = [&seen](std::string_view piece) { seen += piece; };
    const AgentResponse streams[] = {
        agentTurnStream(server.port(), L"/turn", "{}", turn, sink),
        agentFeed(
            server.port(), L"/feed", {CancelSlot::events}, [] { return true; }, sink)};
    for (const AgentResponse& response : streams) {
      EXPECT_EQ(response.status, status);
      EXPECT_EQ(response.error, error);
      EXPECT_EQ(response.body, "");
    }
    EXPECT_EQ(seen, std::string(body) + body);
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

TEST(AgentRequest, CapsTheBodyOfAPlainRequest) {
  EXPECT_EQ(AnswerLimits().maxBodyBytes, 64U * 1024 * 1024);
  EXPECT_EQ(AnswerLimits().totalMs, 60'000U);
  ScriptedServer server(sendInPieces(untilClose(std::string(10, 'x')), 1));
  for (const std::size_t cap : {9U, 10U}) {
    const AgentResponse response =
        agentRequest(server.port(), L"GET", L"/", "", {.maxBodyBytes = cap});
    EXPECT_EQ(response.error, cap < 10 ? "agent response truncated" : "");
    EXPECT_EQ(response.status, 200U);
  }
  ScriptedServer endless([](ServedConnection& connection) {
    (void)connection.send(streamHead);
    while (connection.send(std::string(1 << 20, 'x'))) continue;
  });
  const AgentResponse most =
      agentRequest(endless.port(), L"GET", L"/", "", {.maxBodyBytes = 1 << 20});
  EXPECT_LE(most.body.size(), 2U << 20);  // the cap and one read
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

using Ask = std::function<AgentResponse(std::uint16_t port, const ChunkSink& sink)>;

// The error of a request that is cancelled when a part of its body has come or, where it is not for
// "/", when it has been sent.
std::string errorWhenCancelled(const Ask& ask, const std::function<void()>& cancel) {
  Gate begun;
  Gate goOn;
  ScriptedServer server([&](ServedConnection& connection) {
    const std::string path = pathOf(connection.request);
    if (path != "/") begun.open();
    if (path == "/") (void)connection.send(untilClose("begun"));
    goOn.wait();
    if (path == "/late") answerWith(connection, "late");
  });
  TestThread canceller([&] {
    begun.wait();
    cancel();
    goOn.open();  // some systems only notice with the next byte, or the end
  });
  return ask(server.port(), [&begun](std::string_view) { begun.open(); }).error;
}

Ask plain(const wchar_t* path) {
  return
      [path](std::uint16_t port, const ChunkSink&) { return agentRequest(port, L"GET", path, ""); };
}

TEST(AgentRequest, IsCancelledByItsOwnerAndByTheEndOfTheHost) {
  std::optional<RunningTurn> turn(std::in_place);
  const Ask stream = [&turn](std::uint16_t port, const ChunkSink& sink) {
    return agentTurnStream(port, L"/", "", *turn, sink);
  };
  const Ask ofTurn = [&turn](std::uint16_t port, const ChunkSink&) {
    return agentTurnRequest(port, L"GET", L"/mute", "", *turn);
  };
  std::atomic<bool> isCurrent = true;
  const Ask feed = [&isCurrent](std::uint16_t port, const ChunkSink& sink) {
    return agentFeed(
        port, L"/", {CancelSlot::realtime}, [&isCurrent] { return isCurrent.load(); }, sink);
  };
  const auto abortFeed = [] { abortRequests(CancelSlot::realtime); };
  const auto replaceFeed = [&] {
    isCurrent = false;
    abortFeed();
  };
  EXPECT_EQ(errorWhenCancelled(feed, abortFeed), "agent response truncated");  // nobody asked
  EXPECT_EQ(errorWhenCancelled(feed, replaceFeed), "cancelled");
  EXPECT_EQ(errorWhenCancelled(plain(L"/late"), stopTurns), "");
  turn.emplace();
  EXPECT_EQ(errorWhenCancelled(ofTurn, stopTurns), "cancelled");
  turn.emplace();
  EXPECT_EQ(errorWhenCancelled(stream, stopTurns), "cancelled");
  turn.emplace();
  EXPECT_EQ(errorWhenCancelled(stream, cancelAllAgentRequests), "cancelled");
}

TEST(AgentRequest, APlainOneIsCancelledByTheEndOfTheHost) {
  EXPECT_EQ(errorWhenCancelled(plain(L"/mute"), cancelAllAgentRequests), "cancelled");
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
