#include "platform/http_client.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/clock.h"
#include "support/gate.h"
#include "support/http_outcome.h"
#include "support/scripted_server.h"

namespace media::win::chrome_inspect {
namespace {

const std::string okHead = "HTTP/1.1 200 OK\r\n";
const std::string chunkedHead = okHead + "Transfer-Encoding: chunked\r\n\r\n";

const HttpAnswerCase answerCases[] = {
    {"announced length", okHead + "Content-Length: 5\r\n\r\nhello", true, 200, true, "hello"},
    {"announced length 0", okHead + "Content-Length: 0\r\n\r\n", true, 200, true, ""},
    {"until the connection closes", okHead + "\r\nto the end", true, 200, true, "to the end"},
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
}

TEST(HttpExchange, JoinsChunks) {
  const std::string chunks = chunkedHead + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n";
  expectAnswer({"chunks", chunks, true, 200, true, "hello world"}, chunks.size());
}

TEST(HttpExchange, ExpectsNoBodyAfterHead) {
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 5\r\n\r\n", 99));
  const HttpOutcome outcome = exchangeWith(server.port(), L"HEAD", L"/");
  EXPECT_EQ(outcome.status, 200U);
  EXPECT_TRUE(outcome.whole);
}

TEST(HttpExchange, SendsAnEmptyBodyWithoutHeaderAndData) {
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 0\r\n\r\n", 99));
  const HttpOutcome outcome = exchangeWith(server.port(), L"GET", L"/ready?x=1&y=%20");
  EXPECT_EQ(outcome.status, 200U);
  ASSERT_EQ(server.requests().size(), 1U);
  const std::string request = server.requests().front();
  EXPECT_TRUE(request.starts_with("GET /ready?x=1&y=%20 HTTP/1.1\r\n")) << request;
  EXPECT_NE(request.find("User-Agent: morva-chrome-host\r\n"), request.npos) << request;
  EXPECT_NE(request.find("Host: 127.0.0.1:" + std::to_string(server.port())), request.npos);
  EXPECT_EQ(request.find("Content-Type"), request.npos) << request;
  EXPECT_TRUE(request.ends_with("\r\n\r\n")) << request;
}

TEST(HttpExchange, SendsAnEmptyPostWithoutContentType) {
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 0\r\n\r\n", 99));
  EXPECT_EQ(exchangeWith(server.port(), L"POST", L"/v1/speak/stop").status, 200U);
  const std::string request = server.requests().at(0);
  EXPECT_TRUE(request.starts_with("POST /v1/speak/stop HTTP/1.1\r\n")) << request;
  EXPECT_EQ(request.find("Content-Type"), request.npos) << request;
  EXPECT_TRUE(request.ends_with("\r\n\r\n")) << request;
}

TEST(HttpExchange, SendsABodyAsJson) {
  const std::string body = R"({"text":")" + std::string(200'000, 'x') + R"("})";
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 2\r\n\r\n{}", 99));
  const HttpOutcome outcome = exchangeWith(server.port(), L"POST", L"/v1/chat/completions", body);
  EXPECT_EQ(outcome.body(), "{}");
  const std::string request = server.requests().at(0);
  EXPECT_NE(request.find("Content-Type: application/json\r\n"), request.npos);
  EXPECT_NE(request.find("Content-Length: " + std::to_string(body.size()) + "\r\n"), request.npos);
  EXPECT_TRUE(request.ends_with("\r\n\r\n" + body));
}

TEST(HttpExchange, TakesTheVerbAsItIs) {
  ScriptedServer server(sendInPieces("HTTP/1.1 204 No Content\r\n\r\n", 99));
  EXPECT_EQ(exchangeWith(server.port(), L"DELETE", L"/v1/x").status, 204U);
  EXPECT_TRUE(server.requests().at(0).starts_with("DELETE /v1/x HTTP/1.1\r\n"));
}

TEST(HttpExchange, SendsWhatIsPastAsciiPercentEncoded) {
  ScriptedServer server(sendInPieces(okHead + "Content-Length: 0\r\n\r\n", 99));
  EXPECT_EQ(exchangeWith(server.port(), L"GET", L"/caf\u00e9").status, 200U);
  EXPECT_TRUE(server.requests().at(0).starts_with("GET /caf%C3%A9 HTTP/1.1\r\n"))
      << server.requests().at(0);
}

TEST(HttpExchange, DoesNotFollowARedirect) {
  for (const char* const status : {"301 Moved", "302 Found", "307 Temporary Redirect"}) {
    SCOPED_TRACE(status);
    ScriptedServer elsewhere(sendInPieces(okHead + "Content-Length: 0\r\n\r\n", 99));
    const std::string location = "Location: http://127.0.0.1:" + std::to_string(elsewhere.port());
    ScriptedServer server(sendInPieces(std::string("HTTP/1.1 ") + status + "\r\n" + location +
                                           "/stolen\r\nContent-Length: 0\r\n\r\n",
                                       999));
    const HttpOutcome outcome = exchangeWith(server.port(), L"POST", L"/x", R"({"token":1})");
    EXPECT_EQ(outcome.status / 100, 3U);
    EXPECT_TRUE(elsewhere.requests().empty());
    EXPECT_EQ(server.requests().size(), 1U);
  }
}

TEST(HttpExchange, DoesNotLogOn) {
  for (const char* const scheme : {"NTLM", "Negotiate", "Basic realm=\"x\""}) {
    SCOPED_TRACE(scheme);
    ScriptedServer server(
        sendInPieces(std::string("HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: ") + scheme +
                         "\r\nContent-Length: 0\r\n\r\n",
                     999));
    EXPECT_EQ(exchangeWith(server.port(), L"GET", L"/x").status, 401U);
    EXPECT_EQ(server.requests().size(), 1U);
  }
}

TEST(HttpExchange, HandsOnEachPieceAsItComes) {
  Gate seen[20];

  ScriptedServer server([&seen](ServedConnection& connection) {
    EXPECT_TRUE(connection.send(okHead + "\r\n"));
    for (Gate& gate : seen) {
      EXPECT_TRUE(connection.send("piece\n"));
      gate.wait();  // no further byte before the reader has this one
    }
  });
  std::shared_ptr<HttpExchange> exchange;
  ASSERT_EQ(openHttpExchange(server.port(), L"GET", L"/events", {}, exchange), HttpOpenResult::ok);
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

TEST(HttpExchange, GivesUpOnAMuteServerAfterItsTimeOut) {
  Gate over;
  ScriptedServer server([&over](ServedConnection&) { over.wait(); });
  const std::uint64_t before = tickCountMs();
  const HttpOutcome outcome =
      exchangeWith(server.port(), L"GET", L"/", "", {4000, 4000, 15000, 300});
  over.open();
  EXPECT_TRUE(outcome.sent);
  EXPECT_FALSE(outcome.received);
  EXPECT_GE(tickCountMs() - before, 280U);
  EXPECT_LT(tickCountMs() - before, 10'000U);
}

TEST(HttpExchange, GivesUpOnABodyThatStopsComing) {
  Gate over;
  ScriptedServer server([&over](ServedConnection& connection) {
    (void)connection.send(okHead + "Content-Length: 9\r\n\r\nhello");
    over.wait();
  });
  const HttpOutcome outcome =
      exchangeWith(server.port(), L"GET", L"/", "", {4000, 4000, 15000, 300});
  over.open();
  EXPECT_EQ(outcome.status, 200U);
  EXPECT_FALSE(outcome.whole);
  EXPECT_EQ(outcome.body(), "hello");
}

TEST(HttpExchange, WaitsWithoutLimitWhenTheTimeOutIsZero) {
  ScriptedServer server([](ServedConnection& connection) {
    sleepMs(500);
    (void)connection.send(okHead + "Content-Length: 2\r\n\r\n");
    sleepMs(500);
    (void)connection.send("{}");
  });
  const HttpOutcome outcome = exchangeWith(server.port(), L"GET", L"/", "", {4000, 4000, 15000, 0});
  EXPECT_TRUE(outcome.whole);
  EXPECT_EQ(outcome.body(), "{}");
}

struct OpenCase {
  const char* name;
  std::uint16_t port;
  std::wstring verb;
  std::wstring path;
  HttpOpenResult opened;
};

const OpenCase openCases[] = {
    {"sound", 8090, L"GET", L"/", HttpOpenResult::ok},
    {"port 0", 0, L"GET", L"/", HttpOpenResult::connectFailed},
    {"blank in the verb", 8090, L"GET /x", L"/", HttpOpenResult::requestFailed},
    {"empty verb", 8090, L"", L"/", HttpOpenResult::requestFailed},
    {"blank in the path", 8090, L"GET", L"/a b", HttpOpenResult::requestFailed},
    {"line end in the path", 8090, L"GET", L"/a\r\nX: y", HttpOpenResult::requestFailed},
    {"empty path", 8090, L"GET", L"", HttpOpenResult::requestFailed},
};

TEST(OpenHttpExchange, RefusesWhatCannotBeSent) {
  for (const OpenCase& c : openCases) {
    SCOPED_TRACE(c.name);
    std::shared_ptr<HttpExchange> exchange;
    EXPECT_EQ(openHttpExchange(c.port, c.verb, c.path, {}, exchange), c.opened);
    EXPECT_EQ(exchange != nullptr, c.opened == HttpOpenResult::ok);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
