#include "platform/http_client.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "support/gate.h"
#include "support/http_outcome.h"
#include "support/open_handles.h"
#include "support/scripted_server.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

const std::string okHead = "HTTP/1.1 200 OK\r\n";
const std::string chunks = okHead +
                           "Transfer-Encoding: chunked\r\n\r\n"
                           "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n";

const HttpAnswerCase answerCases[] = {
    {"announced length", okHead + "Content-Length: 5\r\n\r\nhello", true, 200, true, "hello"},
    {"announced length 0", okHead + "Content-Length: 0\r\n\r\n", true, 200, true, ""},
    {"until the connection closes", okHead + "\r\nto the end", true, 200, true, "to the end"},
    {"version 1.0", "HTTP/1.0 200 OK\r\n\r\nto the end", true, 200, true, "to the end"},
    {"error status with body", "HTTP/1.1 500 Oops\r\nContent-Length: 3\r\n\r\nbad", true, 500, true,
     "bad"},
    {"no content", "HTTP/1.1 204 No Content\r\n\r\n", true, 204, true, ""},
    {"not modified, with a length", "HTTP/1.1 304 Same\r\nContent-Length: 5\r\n\r\n", true, 304,
     true, ""},
    {"shorter than announced", okHead + "Content-Length: 9\r\n\r\nhello", true, 200, false,
     "hello"},
    {"nothing of what was announced", okHead + "Content-Length: 9\r\n\r\n", true, 200, false, ""},
    {"closed without a byte", "", false, 0, false, ""},
};

TEST(HttpExchange, AnswersAlikeHoweverTheBytesArrive) {
  for (const HttpAnswerCase& c : answerCases) {
    for (const std::size_t pieceSize : {1U, 2U, 7U, 4096U}) expectAnswer(c, pieceSize);
  }
  // Wine does not join chunks that are cut.
  expectAnswer({"chunks", chunks, true, 200, true, "hello world"}, chunks.size());
}

struct RequestCase {
  const wchar_t* verb;
  const wchar_t* path;
  std::string body;
  std::string line;
};

const RequestCase requestCases[] = {
    {L"GET", L"/ready?x=1&y=%20", "", "GET /ready?x=1&y=%20"},
    {L"GET", L"/a/../b/./c", "", "GET /a/../b/./c"},
    {L"GET", L"/caf\u00e9", "", "GET /caf%C3%A9"},
    {L"DELETE", L"/v1/x", "", "DELETE /v1/x"},
    {L"POST", L"/v1/speak/stop", "", "POST /v1/speak/stop"},
    {L"POST", L"/v1/x", R"({"text":")" + std::string(200'000, 'x') + R"("})", "POST /v1/x"},
};

TEST(HttpExchange, SendsVerbPathAndBodyAsTheyAre) {
  for (const RequestCase& c : requestCases) {
    SCOPED_TRACE(c.line);
    ScriptedServer server(sendInPieces(okHead + "Content-Length: 2\r\n\r\n{}", 99));
    EXPECT_EQ(exchangeWith(server.port(), c.verb, c.path, c.body).body(), "{}");
    ASSERT_EQ(server.requests().size(), 1U);
    const std::string request = server.requests().front();
    const std::string head = request.substr(0, request.find("\r\n\r\n") + 2);
    const auto has = [&head](const std::string& field) {
      return head.find("\r\n" + field) != head.npos;
    };
    EXPECT_TRUE(head.starts_with(c.line + " HTTP/1.1\r\n")) << head;
    EXPECT_TRUE(has("User-Agent: morva-chrome-host\r\n")) << head;
    EXPECT_TRUE(has("Host: 127.0.0.1:" + std::to_string(server.port()))) << head;
    EXPECT_EQ(has("Content-Type: application/json\r\n"), !c.body.empty()) << head;
    EXPECT_EQ(has("Content-Type"), !c.body.empty()) << head;
    EXPECT_TRUE(c.body.empty() || has("Content-Length: " + std::to_string(c.body.size()) + "\r\n"));
    EXPECT_FALSE(has("Expect")) << head;
    EXPECT_TRUE(request.ends_with("\r\n\r\n" + c.body));
  }
}

TEST(HttpExchange, StaysWithItsServerAndDoesNotLogOn) {
  ScriptedServer elsewhere(sendInPieces(okHead + "Content-Length: 0\r\n\r\n", 99));
  const std::string location =
      "Location: http://127.0.0.1:" + std::to_string(elsewhere.port()) + "/stolen";
  const struct {
    std::uint32_t status;
    std::string line;
  } cases[] = {
      {301, location},
      {302, location},
      {307, location},
      {401, "WWW-Authenticate: NTLM"},
      {401, "WWW-Authenticate: Negotiate"},
      {401, "WWW-Authenticate: Basic realm=\"x\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.status << ", " << c.line);
    ScriptedServer server(sendInPieces("HTTP/1.1 " + std::to_string(c.status) + " No\r\n" + c.line +
                                           "\r\nContent-Length: 0\r\n\r\n",
                                       999));
    EXPECT_EQ(exchangeWith(server.port(), L"POST", L"/x", R"({"token":1})").status, c.status);
    EXPECT_EQ(server.requests().size(), 1U);
  }
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST(HttpExchange, HandsOnEachPieceAsItComesAndWaitsForItWithoutLimit) {
  Gate seen[20];
  ScriptedServer server([&seen](ServedConnection& connection) {
    EXPECT_TRUE(connection.send(okHead + "\r\n"));
    for (Gate& gate : seen) {
      EXPECT_TRUE(connection.send("piece\n"));
      gate.wait();  // no further byte before the reader has this one
    }
  });
  std::shared_ptr<HttpExchange> exchange;
  ASSERT_EQ(openHttpExchange(server.port(), L"GET", L"/events", {0, 0, 0, 0}, exchange),
            HttpOpenResult::ok);
  ASSERT_TRUE(exchange->send("") && exchange->receive());
  bool ok = true;
  for (Gate& gate : seen) {
    std::size_t count = 0;
    std::size_t got = 0;
    ok = ok && exchange->available(count);
    std::string piece(ok ? count : 0, '\0');
    ok = ok && exchange->read(piece.data(), piece.size(), got);
    gate.open();  // whatever came: the server must not wait for ever
    EXPECT_EQ(piece, "piece\n");
    EXPECT_EQ(count, got);
  }
  ASSERT_TRUE(ok);
  std::size_t count = 42;
  EXPECT_TRUE(exchange->available(count));
  EXPECT_EQ(count, 0U);
}

TEST(HttpExchange, ReadsNoMoreThanFits) {
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 5\r\n\r\nhello", 999));
  std::shared_ptr<HttpExchange> exchange;
  ASSERT_EQ(openHttpExchange(server.port(), L"GET", L"/", {}, exchange), HttpOpenResult::ok);
  ASSERT_TRUE(exchange->send("") && exchange->receive());
  std::string body;
  char piece[2];
  for (std::size_t count = 1, got = 0; exchange->available(count) && count > 0;) {
    ASSERT_TRUE(exchange->read(piece, sizeof piece, got));
    ASSERT_LE(got, sizeof piece);
    body.append(piece, got);
  }
  EXPECT_EQ(body, "hello");
}

TEST(HttpExchange, FailsWhenNobodyListens) {
  const std::uint64_t before = tickCountMs();
  const HttpOutcome outcome = exchangeWith(portWithoutListener(), L"GET", L"/ready");
  EXPECT_EQ(outcome.opened, HttpOpenResult::ok);
  EXPECT_FALSE(outcome.sent && outcome.received);
  EXPECT_EQ(outcome.status, 0U);
  EXPECT_LT(tickCountMs() - before, 6000U);
}

TEST(HttpExchange, GivesUpOnASilentServerAfterItsTimeOut) {
  for (const std::string& answer : {std::string(), okHead + "Content-Length: 9\r\n\r\nhello"}) {
    SCOPED_TRACE(answer);
    Gate over;
    ScriptedServer server([&](ServedConnection& connection) {
      (void)connection.send(answer);
      over.wait();
    });
    const std::uint64_t before = tickCountMs();
    const HttpOutcome outcome =
        exchangeWith(server.port(), L"GET", L"/", "", {4000, 4000, 15000, 300});
    over.open();
    EXPECT_TRUE(outcome.sent);
    EXPECT_EQ(outcome.received, !answer.empty());
    EXPECT_FALSE(outcome.whole);
    EXPECT_EQ(outcome.body(), answer.empty() ? "" : "hello");
    EXPECT_GE(tickCountMs() - before, 280U);
    EXPECT_LT(tickCountMs() - before, 10'000U);
  }
}

TEST(OpenHttpExchange, RefusesWhatCannotBeSent) {
  const struct {
    const char* name;
    std::uint16_t port;
    const wchar_t* verb;
    const wchar_t* path;
    HttpOpenResult opened;
  } cases[] = {
      {"sound", 8090, L"GET", L"/", HttpOpenResult::ok},
      {"port 0", 0, L"GET", L"/", HttpOpenResult::connectFailed},
      {"blank in the verb", 8090, L"GET /x", L"/", HttpOpenResult::requestFailed},
      {"line end in the path", 8090, L"GET", L"/a\r\nX: y", HttpOpenResult::requestFailed},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::shared_ptr<HttpExchange> exchange;
    EXPECT_EQ(openHttpExchange(c.port, c.verb, c.path, {}, exchange), c.opened);
    EXPECT_EQ(exchange != nullptr, c.opened == HttpOpenResult::ok);
  }
}

// Runs the steps, and aborts before the step with the number `at`; the number of the first step
// that failed.
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

TEST(HttpAbort, FailsTheNextStepWhicheverItIsAndEveryLaterOne) {
  for (int at = 0; at <= 4; ++at) {
    SCOPED_TRACE(at);
    ScriptedServer server(sendInPieces(okHead + "Content-Length: 5\r\n\r\nhello", 99));
    std::shared_ptr<HttpExchange> exchange;
    ASSERT_EQ(openHttpExchange(server.port(), L"POST", L"/", {}, exchange), HttpOpenResult::ok);
    EXPECT_EQ(firstFailure(*exchange, at), at);
    EXPECT_EQ(exchange->status(), at == 4 ? 200U : 0U);
    exchange->abort();
    std::size_t count = 0;
    char byte = 0;
    EXPECT_FALSE(exchange->available(count));
    EXPECT_FALSE(exchange->read(&byte, 1, count));
    EXPECT_EQ(exchange->status(), 0U);
  }
}

// Answers with the path of the request, in pieces, so that an abort finds the answer under way.
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

// One exchange, aborted by another thread at a moment that depends on `number`. False when it read
// what belongs to another.
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
  return (id + "\n" + id + "\n" + id + "\n").starts_with(outcome.body());
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
