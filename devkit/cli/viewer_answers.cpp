#include "viewer_answers.h"

#include <array>
#include <charconv>
#include <string>
#include <string_view>
#include <thread>

#include "viewer_turn.h"

namespace viewer_cli {
namespace {

constexpr std::size_t largestRequestBytes = 64 << 20;

struct Request {
  std::string target;  // "POST /v1/chat/consent"
  std::string body;
};

constexpr char models[] = R"({"object":"list","data":[{"object":"model","id":"Stand-in program",)"
                          R"("morva_preset_id":"standin-cli","morva_is_default":true}]})";

char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::size_t bodyLength(std::string_view headers) {
  constexpr std::string_view name = "\r\ncontent-length:";
  std::string folded(headers);
  for (char& c : folded) c = lowered(c);
  const std::size_t at = folded.find(name);
  if (at == std::string::npos) return 0;
  const std::size_t digits = folded.find_first_not_of(' ', at + name.size());
  std::size_t length = 0;
  if (digits != std::string::npos) {
    (void)std::from_chars(folded.data() + digits, folded.data() + folded.size(), length);
  }
  return length;
}

bool readMore(Socket connection, std::string& text) {
  std::array<char, 16384> buffer{};
  const std::size_t got = receive(connection, buffer.data(), buffer.size());
  text.append(buffer.data(), got);
  return got > 0 && text.size() <= largestRequestBytes;
}

bool readRequest(Socket connection, Request& request) {
  std::string text;
  std::size_t end = std::string::npos;
  while ((end = text.find("\r\n\r\n")) == std::string::npos) {
    if (!readMore(connection, text)) return false;
  }
  const std::size_t bodyStart = end + 4;
  const std::size_t length = bodyLength(std::string_view(text).substr(0, end + 2));
  while (text.size() - bodyStart < length) {
    if (!readMore(connection, text)) return false;
  }
  request.target = text.substr(0, text.find_first_of("? \r", text.find(' ') + 1));
  request.body = text.substr(bodyStart, length);
  return true;
}

void answerJson(Socket connection, std::string_view status, std::string_view body) {
  std::string answer = "HTTP/1.1 ";
  answer.append(status).append("\r\nContent-Type: application/json\r\nContent-Length: ");
  answer.append(std::to_string(body.size())).append("\r\nConnection: close\r\n\r\n");
  (void)sendAll(connection, answer.append(body));  // a host that has gone needs no answer
}

void answerReady(Socket connection, const Behaviour& behaviour, std::uint16_t port) {
  if (isReady(behaviour, port)) {
    answerJson(connection, "200 OK", R"({"ready":true})");
  } else {
    answerJson(connection, "503 Service Unavailable", R"({"ready":false})");
  }
}

void answerConsent(Socket connection, const std::string& body) {
  std::string dense;
  for (const char c : body) {
    if (c != ' ') dense += c;
  }
  if (dense.find(R"("cancel":true)") != std::string::npos) cancelTurns();
  answerJson(connection, "200 OK", R"({"ok":true})");
}

void answer(Socket connection, const Request& request, const Behaviour& behaviour,
            std::uint16_t port) {
  if (request.target == "GET /ready") {
    answerReady(connection, behaviour, port);
  } else if (request.target == "GET /v1/models") {
    answerJson(connection, "200 OK", models);
  } else if (request.target == "POST /v1/chat/completions") {
    streamTurn(connection, request.body, behaviour);
  } else if (request.target == "POST /v1/chat/consent") {
    answerConsent(connection, request.body);
  } else if (request.target == "POST /v1/speak") {
    std::this_thread::sleep_for(behaviour.speaks);
    answerJson(connection, "200 OK", R"({"ok":true})");
  } else if (request.target == "POST /v1/host-tool-providers") {
    answerJson(connection, "200 OK", R"({"ok":true})");
  } else {
    answerJson(connection, "404 Not Found", R"({"ok":false,"error":"no such path"})");
  }
}

void waitUntilClosed(Socket connection) {
  std::string ignored;
  while (readMore(connection, ignored)) ignored.clear();
}

}  // namespace

void serveConnection(Socket connection, const Behaviour& behaviour, std::uint16_t port) {
  Request request;
  if (readRequest(connection, request)) {
    if (behaviour.mute) {
      waitUntilClosed(connection);
    } else {
      answer(connection, request, behaviour, port);
    }
  }
  closeSocket(connection);
}

}  // namespace viewer_cli
