#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/http_client.h"

namespace media::win::chrome_inspect {

// What became of one exchange, step by step.
struct HttpOutcome {
  HttpOpenResult opened = HttpOpenResult::sessionFailed;
  bool sent = false;
  bool received = false;
  std::uint32_t status = 0;
  bool whole = false;               // the body came to its regular end
  std::vector<std::string> pieces;  // one per available/read pair

  std::string body() const;
};

// Makes a whole exchange with a server on 127.0.0.1.
HttpOutcome exchangeWith(std::uint16_t port, const std::wstring& verb, const std::wstring& path,
                         const std::string& body = "", const HttpTimeouts& limits = {});

// The steps after opening.
void runExchange(HttpExchange& exchange, const std::string& body, HttpOutcome& outcome);

struct HttpAnswerCase {
  const char* name;
  std::string answer;  // all that the server sends before it closes
  bool received;
  std::uint32_t status;
  bool whole;
  std::string body;
};

// Serves the answer of `c`, `pieceSize` bytes at a time, and expects the rest of `c`.
void expectAnswer(const HttpAnswerCase& c, std::size_t pieceSize);

// A port of 127.0.0.1 on which nobody listens.
std::uint16_t portWithoutListener();

}  // namespace media::win::chrome_inspect
