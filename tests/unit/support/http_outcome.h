#pragma once

#include "platform/http_client.h"
#include "support/scripted_server.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

inline const std::string okHead = "HTTP/1.1 200 OK\r\n";

inline std::shared_ptr<HttpExchange> openExchange(std::uint16_t port,
                                                  const HttpTimeouts& limits = {},
                                                  const std::wstring& verb = L"GET",
                                                  const std::wstring& path = L"/") {
  std::shared_ptr<HttpExchange> exchange;
  EXPECT_EQ(openHttpExchange(port, verb, path, limits, exchange), HttpOpenResult::ok);
  return exchange;
}

// What became of one exchange, step by step.
struct HttpOutcome {
  bool sent = false;
  std::uint32_t status = 0;  // 0 when no answer was received
  bool whole = false;        // the body came to its regular end
  std::string body;
};

// Reads three bytes at a time at most.
inline HttpOutcome runExchange(HttpExchange& exchange, const std::string& body = "") {
  HttpOutcome outcome;
  outcome.sent = exchange.send(body);
  if (!outcome.sent || !exchange.receive()) return outcome;
  outcome.status = exchange.status();
  for (std::size_t count = 0; !outcome.whole && exchange.available(count);) {
    char piece[3];
    std::size_t got = 0;
    if (count > 0 && !exchange.read(piece, std::min(count, sizeof piece), got)) break;
    EXPECT_LE(got, sizeof piece);
    outcome.body.append(piece, got);
    outcome.whole = count == 0;
  }
  return outcome;
}

}  // namespace media::win::chrome_inspect
