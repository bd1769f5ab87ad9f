#include "agent/agent_request.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "platform/clock.h"
#include "support/run_threads.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

using namespace std::string_literals;

std::string withLength(const std::string& statusLine, const std::string& body) {
  return "HTTP/1.1 " + statusLine + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

std::string untilClose(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + body;
}

struct AnswerCase {
  const char* name;
  std::string answer;
  std::uint32_t status;
  std::string body;
  std::string error;
};

const AnswerCase answerCases[] = {
    {"a body of known length", withLength("200 OK", "abc"), 200, "abc", ""},
    {"an empty body", withLength("200 OK", ""), 200, "", ""},
    {"a body up to the close", untilClose("abc"), 200, "abc", ""},
    {"bytes of any value", untilClose("\0\xFF\r\n"s), 200, "\0\xFF\r\n"s, ""},
    {"not found is an answer", withLength("404 Not Found", "no"), 404, "no", ""},
    {"an error of the server is an answer", withLength("500 Oops", "{}"), 500, "{}", ""},
    {"a request for a password is an answer",
     "HTTP/1.1 401 No\r\nWWW-Authenticate: NTLM\r\nContent-Length: 0\r\n\r\n", 401, "", ""},
    {"broken off in the body", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc", 200, "abc",
     "agent response truncated"},
    {"closed without a word", "", 0, "", "agent request failed"},
    {"broken off in the status line", "HTTP/1.1", 0, "", "agent request failed"},
};

TEST(AgentRequest, TellsHowTheExchangeEnded) {
  for (const AnswerCase& c : answerCases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{100'000}}) {
      SCOPED_TRACE(testing::Message() << c.name << ", " << piece << " bytes at a time");
      ScriptedServer server(sendInPieces(c.answer, piece));
      const AgentResponse response = agentRequest(server.port(), L"GET", L"/v1/models", "");
      EXPECT_EQ(response.status, c.status);
      EXPECT_EQ(response.error, c.error);
      if (c.error.empty()) EXPECT_EQ(response.body, c.body);
      EXPECT_TRUE(c.body.starts_with(response.body));  // what arrived before the failure
    }
  }
}

// In one piece: Wine does not put chunks together well that come in others.
TEST(AgentRequest, TakesABodyInChunks) {
  ScriptedServer server(sendInPieces(
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n1\r\nc\r\n0\r\n\r\n", 1000));
  const AgentResponse response = agentRequest(server.port(), L"GET", L"/v1/models", "");
  EXPECT_EQ(response.error, "");
  EXPECT_EQ(response.body, "abc");
}

TEST(AgentRequest, SendsABodyAsJsonAndNothingWithoutOne) {
  ScriptedServer server(sendInPieces(withLength("200 OK", ""), 1000));
  EXPECT_EQ(agentRequest(server.port(), L"POST", L"/a?b=c", "{\"x\":1}").error, "");
  EXPECT_EQ(agentRequest(server.port(), L"POST", L"/a", "").error, "");
  EXPECT_EQ(agentRequest(server.port(), L"DELETE", L"/d", "").error, "");
  const std::vector<std::string> requests = server.requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_TRUE(requests[0].starts_with("POST /a?b=c HTTP/1.1\r\n")) << requests[0];
  EXPECT_NE(requests[0].find("\r\nContent-Type: application/json\r\n"), std::string::npos);
  EXPECT_TRUE(requests[0].ends_with("\r\n\r\n{\"x\":1}"));
  EXPECT_TRUE(requests[1].starts_with("POST /a HTTP/1.1\r\n"));
  EXPECT_EQ(requests[1].find("Content-Type"), std::string::npos);
  EXPECT_TRUE(requests[1].ends_with("\r\n\r\n"));
  EXPECT_TRUE(requests[2].starts_with("DELETE /d HTTP/1.1\r\n"));
}

TEST(AgentRequest, DoesNotFollowRedirects) {
  ScriptedServer other(sendInPieces(withLength("200 OK", "other"), 1000));
  const std::string location = "http://127.0.0.1:" + std::to_string(other.port()) + "/";
  for (const char* const status : {"301 A", "302 B", "303 C", "307 D", "308 E"}) {
    ScriptedServer server(sendInPieces(
        "HTTP/1.1 "s + status + "\r\nLocation: " + location + "\r\nContent-Length: 0\r\n\r\n",
        1000));
    const AgentResponse response = agentRequest(server.port(), L"POST", L"/", "{\"token\":1}");
    EXPECT_EQ(response.status, std::stoul(status));
    EXPECT_EQ(response.error, "");
  }
  EXPECT_TRUE(other.requests().empty());
}

TEST(AgentRequest, FailsWhenNobodyListens) {
  std::uint16_t port = 0;
  (void)listenOnLoopback(port, 1);  // free again at once
  const AgentResponse response = agentRequest(port, L"GET", L"/", "");
  EXPECT_EQ(response.status, 0U);
  EXPECT_EQ(response.error, "agent request failed");
  stopTurns();
  EXPECT_EQ(agentRequest(port, L"GET", L"/", "").error, "cancelled");
}

TEST(AgentRequest, RefusesAVerbThatCannotStandInARequestLine) {
  EXPECT_EQ(agentRequest(1, L"GET X", L"/", "").error, "winhttp request failed");
  EXPECT_EQ(agentRequest(1, L"GET\r\n", L"/", "").error, "winhttp request failed");
}

TEST(AgentRequest, EscapesWhatCannotStandInARequestLine) {
  ScriptedServer server(sendInPieces(withLength("200 OK", ""), 1000));
  EXPECT_EQ(agentRequest(server.port(), L"GET", L"/a\r\nX: y", "").error, "");
  const std::vector<std::string> requests = server.requests();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_TRUE(requests[0].starts_with("GET /a%0D%0AX:%20y HTTP/1.1\r\n")) << requests[0];
}

TEST(AgentRequest, IsNotMadeWhenTheHostIsEnding) {
  ScriptedServer server(sendInPieces(withLength("200 OK", ""), 1000));
  cancelAllAgentRequests();
  EXPECT_EQ(agentRequest(server.port(), L"GET", L"/", "").error, "cancelled");
  EXPECT_TRUE(server.requests().empty());
}

TEST(AgentRequest, CapsTheBody) {
  AgentRequestOptions options;
  options.maxBodyBytes = 10;
  for (const bool tooLong : {false, true}) {
    ScriptedServer server(sendInPieces(untilClose(std::string(tooLong ? 11 : 10, 'x')), 1));
    const AgentResponse response = agentRequest(server.port(), L"GET", L"/", "", options);
    EXPECT_EQ(response.error, tooLong ? "agent response truncated" : "");
    EXPECT_EQ(response.status, 200U);
  }
}

TEST(AgentRequest, TakesNoMoreOfAnEndlessBodyThanItsCap) {
  EXPECT_EQ(AgentRequestOptions().maxBodyBytes, 64U * 1024 * 1024);
  EXPECT_EQ(AgentRequestOptions().totalMs, 60'000U);
  ScriptedServer server([](ServedConnection& connection) {
    const std::string piece(1 << 20, 'x');
    connection.send(untilClose(""));
    while (connection.send(piece)) continue;
  });
  AgentRequestOptions options;
  options.maxBodyBytes = 1 << 20;
  const AgentResponse response = agentRequest(server.port(), L"GET", L"/", "", options);
  EXPECT_EQ(response.error, "agent response truncated");
  EXPECT_LE(response.body.size(), 2U << 20);  // the cap and one read
}

TEST(AgentRequest, EndsADripAtItsDeadline) {
  std::atomic<bool> gone = false;
  ScriptedServer server([&gone](ServedConnection& connection) {
    connection.send(untilClose(""));
    while (!gone && connection.send("x")) sleepMs(20);
  });
  AgentRequestOptions options;
  options.totalMs = 400;
  const std::uint64_t before = tickCountMs();
  const AgentResponse response = agentRequest(server.port(), L"GET", L"/", "", options);
  const std::uint64_t spent = tickCountMs() - before;
  gone = true;
  EXPECT_EQ(response.error, "agent response truncated");
  EXPECT_GE(spent + 16, 400U);
  EXPECT_LT(spent, 3000U);
}

TEST(AgentRequest, HandsPiecesToTheSink) {
  ScriptedServer server(sendInPieces(untilClose("abcdef"), 1));
  std::string seen;
  AgentRequestOptions options;
  options.streaming = true;
  options.sink = [&seen](std::string_view piece) { seen += piece; };
  const AgentResponse response = agentRequest(server.port(), L"POST", L"/", "{}", options);
  EXPECT_EQ(response.error, "");
  EXPECT_EQ(response.body, "");
  EXPECT_EQ(seen, "abcdef");
}

TEST(AgentRequest, LeavesNothingBehindWhenTheSinkThrows) {
  ScriptedServer server(sendInPieces(untilClose("abc"), 100));
  for (int i = 0; i < 20; ++i) {
    AgentRequestOptions options;
    options.streaming = true;
    options.sink = [](std::string_view) { throw std::runtime_error("x"); };
    EXPECT_THROW((void)agentRequest(server.port(), L"POST", L"/", "{}", options),
                 std::runtime_error);
    stopTurns();  // finds no request that is gone
    const RunningTurn turn;
    ASSERT_TRUE(turn.beginRequest());
    EXPECT_EQ(agentRequest(server.port(), L"GET", L"/", "").body, "abc");
  }
}

// A server that sends a beginning and goes on only when told to.
class HeldServer {
 public:
  HeldServer()
      : server_([this](ServedConnection& connection) {
          connection.send(untilClose("begun"));
          while (!ended_) sleepMs(1);
        }) {}
  ~HeldServer() { end(); }
  std::uint16_t port() const { return server_.port(); }
  void end() { ended_ = true; }

 private:
  std::atomic<bool> ended_ = false;
  ScriptedServer server_;
};

// Makes a request and, once its body has begun, cancels it from another thread. The error.
std::string errorWhenCancelled(bool streaming, CancelSlot slot, void (*cancel)()) {
  HeldServer server;
  std::promise<void> begun;
  AgentRequestOptions options;
  options.streaming = streaming;
  options.slot = slot;
  options.sink = [&begun](std::string_view) { begun.set_value(); };
  TestThread canceller([&] {
    begun.get_future().wait();
    cancel();
    server.end();  // some systems only notice with the next byte, or the end
  });
  return agentRequest(server.port(), L"GET", L"/", "", options).error;
}

TEST(AgentRequest, IsCancelledInTheMiddleOfItsBody) {
  EXPECT_EQ(errorWhenCancelled(true, CancelSlot::plain, stopTurns), "cancelled");
  const RunningTurn turn;
  ASSERT_TRUE(turn.beginRequest());
  EXPECT_EQ(
      errorWhenCancelled(true, CancelSlot::realtime, [] { abortRequests(CancelSlot::realtime); }),
      "agent response truncated");  // nobody asked for a cancellation
}

TEST(AgentRequest, ATurnIsCancelledByTheEndOfTheHost) {
  EXPECT_EQ(errorWhenCancelled(true, CancelSlot::plain, cancelAllAgentRequests), "cancelled");
}

TEST(AgentRequest, TheEventsAreCancelledByTheEndOfTheHost) {
  EXPECT_EQ(errorWhenCancelled(true, CancelSlot::events, cancelAllAgentRequests), "cancelled");
}

TEST(AgentRequest, AnyOtherIsBrokenOffByTheEndOfTheHost) {
  EXPECT_EQ(errorWhenCancelled(false, CancelSlot::plain, cancelAllAgentRequests),
            "agent response truncated");
}

TEST(AgentRequest, StopsBetweenTwoReadsWhenTold) {
  ScriptedServer server(sendInPieces(untilClose("abcdef"), 1));
  bool stop = false;
  AgentRequestOptions options;
  options.streaming = true;
  options.cancelled = [&stop] { return stop; };
  options.sink = [&stop](std::string_view) { stop = true; };
  EXPECT_EQ(agentRequest(server.port(), L"GET", L"/", "", options).error, "cancelled");
}

TEST(AgentRequest, OtherThreadsNeverMixUpTheirAnswers) {
  // Each server gives its own answer; turns are stopped all the time meanwhile.
  constexpr int clients = 3;
  std::atomic<int> running = clients;
  std::atomic<int> whole = 0;
  std::atomic<int> broken = 0;
  runThreads(clients + 1, [&](int number) {
    if (number == clients) {
      while (running > 0) {
        stopTurns();
        sleepMs(2);
      }
      return;
    }
    const std::string mine(2000, static_cast<char>('a' + number));
    {
      ScriptedServer server(sendInPieces(untilClose(mine), 500));
      for (int i = 0; i < 60; ++i) {
        std::string seen;
        AgentRequestOptions options;
        options.streaming = true;
        options.sink = [&seen](std::string_view piece) { seen += piece; };
        const AgentResponse response = agentRequest(server.port(), L"GET", L"/", "", options);
        EXPECT_TRUE(mine.starts_with(seen));
        if (response.error.empty()) EXPECT_EQ(seen.size(), mine.size());
        ++(response.error.empty() ? whole : broken);
      }
    }
    --running;
  });
  EXPECT_EQ(whole + broken, clients * 60);
}

struct ProbeCase {
  const char* name;
  std::string answer;
  bool ready;
};

const ProbeCase probeCases[] = {
    {"says nothing of it", withLength("200 OK", "{}"), true},
    {"ready", withLength("200 OK", R"({"ready":true})"), true},
    {"not ready", withLength("200 OK", R"({"ready":false})"), false},
    {"ready is null", withLength("200 OK", R"({"ready":null})"), false},
    {"ready is a text", withLength("200 OK", R"({"ready":"true"})"), false},
    {"ready is a number", withLength("200 OK", R"({"ready":1})"), false},
    {"no object", withLength("200 OK", "[]"), false},
    {"no JSON", withLength("200 OK", "ok"), false},
    {"no body", withLength("200 OK", ""), false},
    {"another status", withLength("503 Busy", R"({"ready":true})"), false},
    {"another good status", withLength("204 None", ""), false},
    {"broken off", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n{}", false},
    {"no answer", "", false},
    {"a body at the limit", withLength("200 OK", "{}" + std::string(65'534, ' ')), true},
    {"a video", untilClose("{}" + std::string(200'000, ' ')), false},
};

TEST(ProbeAgentReady, TellsAnAgentFromOthers) {
  for (const ProbeCase& c : probeCases) {
    SCOPED_TRACE(c.name);
    ScriptedServer server(sendInPieces(c.answer, 100'000));
    EXPECT_EQ(probeAgentReady(server.port()), c.ready);
    const std::vector<std::string> requests = server.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_TRUE(requests[0].starts_with("GET /ready HTTP/1.1\r\n"));
  }
}

TEST(ProbeAgentReady, GivesUpOnAMuteOne) {
  std::atomic<bool> ended = false;
  ScriptedServer server([&ended](ServedConnection&) {
    while (!ended) sleepMs(1);
  });
  const std::uint64_t before = tickCountMs();
  EXPECT_FALSE(probeAgentReady(server.port(), 300));
  EXPECT_LT(tickCountMs() - before, 3000U);
  ended = true;
}

TEST(ProbeAgentReady, IsFalseWhenNobodyListens) {
  std::uint16_t port = 0;
  (void)listenOnLoopback(port, 1);
  EXPECT_FALSE(probeAgentReady(port));
}

}  // namespace
}  // namespace media::win::chrome_inspect
