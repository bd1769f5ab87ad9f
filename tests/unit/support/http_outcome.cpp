#include "support/http_outcome.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/loopback_socket.h"
#include "support/scripted_server.h"

namespace media::win::chrome_inspect {
namespace {

bool readBody(HttpExchange& exchange, std::vector<std::string>& pieces) {
  std::size_t count = 0;
  while (exchange.available(count)) {
    if (count == 0) return true;
    std::string piece(count, '\0');
    std::size_t got = 0;
    if (!exchange.read(piece.data(), piece.size(), got)) return false;
    piece.resize(got);
    pieces.push_back(piece);
  }
  return false;
}

}  // namespace

std::string HttpOutcome::body() const {
  std::string all;
  for (const std::string& piece : pieces) all += piece;
  return all;
}

void runExchange(HttpExchange& exchange, const std::string& body, HttpOutcome& outcome) {
  outcome.sent = exchange.send(body);
  if (!outcome.sent) return;
  outcome.received = exchange.receive();
  if (!outcome.received) return;
  outcome.status = exchange.status();
  outcome.whole = readBody(exchange, outcome.pieces);
}

HttpOutcome exchangeWith(std::uint16_t port, const std::wstring& verb, const std::wstring& path,
                         const std::string& body, const HttpTimeouts& limits) {
  HttpOutcome outcome;
  std::shared_ptr<HttpExchange> exchange;
  outcome.opened = openHttpExchange(port, verb, path, limits, exchange);
  if (exchange) runExchange(*exchange, body, outcome);
  return outcome;
}

void expectAnswer(const HttpAnswerCase& c, std::size_t pieceSize) {
  SCOPED_TRACE(testing::Message() << c.name << ", " << pieceSize << " bytes at a time");
  ScriptedServer server(sendInPieces(c.answer, pieceSize));
  const HttpOutcome outcome = exchangeWith(server.port(), L"GET", L"/answer");
  EXPECT_EQ(outcome.opened, HttpOpenResult::ok);
  EXPECT_TRUE(outcome.sent);
  EXPECT_EQ(outcome.received, c.received);
  EXPECT_EQ(outcome.status, c.status);
  EXPECT_EQ(outcome.whole, c.whole);
  EXPECT_EQ(outcome.body(), c.body);
}

std::uint16_t portWithoutListener() {
  std::uint16_t port = 0;
  const LoopbackSocket listener = listenOnLoopback(port, 1);
  return port;
}

}  // namespace media::win::chrome_inspect
