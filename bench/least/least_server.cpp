#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "plain_frames.h"
#include "platform/process_control.h"
#include "platform/sockets.h"
#include "platform/threads.h"

// The least that serves over HTTP: each thread answers one request after the other. Any GET is
// answered with the body of its first frame as it is. What a POST holds goes to the extension in a
// frame, and the beginning of the extension's frame, as much as a host leaves of a page, to whoever
// asked; one such call at a time. Ids and lengths are found by a plain search. Its arguments are
// its port and the number of threads.
namespace media::win::chrome_inspect {
namespace {

constexpr int backlog = 16;
constexpr std::size_t answerBytes = 1000;
constexpr std::string_view lengthField = "Content-Length: ";

// Reads up to the end of the body; `bodyAt` is where that begins.
bool receiveRequest(const OwnedSocket& connection, std::string& request, std::size_t& bodyAt) {
  std::array<char, 4096> piece{};
  std::size_t wanted = std::string::npos;
  for (std::size_t got = 0; request.size() < wanted;) {
    if (!receiveSome(connection, piece.data(), piece.size(), got)) return false;
    request.append(piece.data(), got);
    bodyAt = request.find("\r\n\r\n") + 4;
    if (bodyAt < 4) continue;
    const std::size_t at = request.find(lengthField);
    const bool hasBody = at < bodyAt;
    wanted = bodyAt + (hasBody ? std::strtoul(&request[at + lengthField.size()], nullptr, 10) : 0);
  }
  return true;
}

void sendAll(const OwnedSocket& connection, std::string_view bytes) {
  for (std::size_t sent = 0; !bytes.empty(); bytes.remove_prefix(sent)) {
    if (!sendSome(connection, bytes.data(), bytes.size(), sent)) return;
  }
}

bool relay(const OwnedSocket& connection, std::string_view body, int number) {
  const std::string id = "\"requestId\":\"least-" + std::to_string(number) + '"';
  std::string frame;
  appendPlainFrame(frame,
                   "{\"command\":\"browserUse\"," + id + ",\"payload\":" + std::string(body) + '}');
  if (!writePlainly(frame)) return false;
  do {
    if (!readPlainFrame(frame)) return false;
  } while (frame.find(id) == std::string::npos);
  const std::string_view cut = std::string_view(frame).substr(frameHead, answerBytes);
  sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(cut.size()) +
                          "\r\nConnection: close\r\n\r\n" + std::string(cut));
  return true;
}

[[noreturn]] void serveForever(const OwnedSocket& listener, std::string_view fixedAnswer) {
  for (int number = 0;; ++number) {
    OwnedSocket connection;
    std::string request;
    std::size_t bodyAt = 0;
    if (!acceptOne(listener, connection) || !receiveRequest(connection, request, bodyAt)) continue;
    if (request.starts_with("GET")) {
      sendAll(connection, fixedAnswer);
    } else if (!relay(connection, std::string_view(request).substr(bodyAt), number)) {
      exitProcess(0);
    }
  }
}

int serve(std::uint16_t port, int threads) {
  prepareProcess();
  OwnedSocket listener;
  std::string frame;
  if (!readPlainFrame(frame) || !startSockets() || !openSocket(listener) ||
      !bindLoopback(listener, port) || !listenOn(listener, backlog)) {
    return 1;
  }
  const std::string_view fixedAnswer = std::string_view(frame).substr(frameHead);
  for (int i = 1; i < threads; ++i) {
    if (!startThread([&] { serveForever(listener, fixedAnswer); })) return 1;
  }
  serveForever(listener, fixedAnswer);
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  return media::win::chrome_inspect::serve(static_cast<std::uint16_t>(std::atoi(argv[1])),
                                           std::atoi(argv[2]));
}
