#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/byte_stream.h"
#include "platform/process_control.h"
#include "platform/sockets.h"
#include "platform/threads.h"

// The least that an HTTP server with a thread for each connection can do: parked threads read up to
// the end of the header block and send one fixed answer, or 16 MiB for a target that begins with
// "/api/local-file". It looks at nothing else. Its one argument is its port; it ends with its
// standard input.
namespace media::win::chrome_inspect {
namespace {

constexpr int parkedThreads = 16;
constexpr std::size_t largeBytes = 16777216;
constexpr std::string_view largeTarget = "GET /api/local-file";
// As long as the host's answer for a path that it does not have.
constexpr std::string_view answer =
    "HTTP/1.1 404 Not Found\r\nContent-Type: application/json\r\n"
    "Access-Control-Allow-Origin: chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc\r\n"
    "Vary: Origin\r\nAccess-Control-Allow-Methods: GET, POST, OPTIONS\r\n"
    "Access-Control-Allow-Headers: Content-Type, X-Morva-Session\r\n"
    "Content-Length: 12\r\nConnection: close\r\n\r\n{\"ok\":false}";

struct Handover {
  std::mutex mutex;  // guards what follows
  std::condition_variable offered;
  std::vector<OwnedSocket> waiting;
};

Handover& handover() {
  static Handover& one = *new Handover;
  return one;
}

void sendAll(const OwnedSocket& connection, std::string_view bytes) {
  std::size_t sent = 0;
  while (!bytes.empty() && sendSome(connection, bytes.data(), bytes.size(), sent)) {
    bytes.remove_prefix(sent);
  }
}

void serve(const OwnedSocket& connection, const std::string& large) {
  std::string head;
  std::array<char, 4096> piece{};
  std::size_t got = 0;
  while (head.find("\r\n\r\n") == std::string::npos) {
    if (!receiveSome(connection, piece.data(), piece.size(), got)) return;
    head.append(piece.data(), got);
  }
  sendAll(connection, head.starts_with(largeTarget) ? std::string_view(large) : answer);
}

void serveForever(const std::string& large) {
  Handover& shared = handover();
  for (;;) {
    OwnedSocket connection;
    {
      std::unique_lock lock(shared.mutex);
      shared.offered.wait(lock, [&shared] { return !shared.waiting.empty(); });
      connection = std::move(shared.waiting.back());
      shared.waiting.pop_back();
    }
    serve(connection, large);
  }
}

[[noreturn]] void acceptForever(const OwnedSocket& listener) {
  Handover& shared = handover();
  for (;;) {
    OwnedSocket connection;
    if (!acceptOne(listener, connection)) continue;
    const std::lock_guard lock(shared.mutex);
    shared.waiting.push_back(std::move(connection));
    shared.offered.notify_one();
  }
}

int respond(std::uint16_t port) {
  prepareProcess();
  OwnedSocket& listener = *new OwnedSocket;
  const std::string& large = *new std::string(largeBytes, 'x');
  if (!startSockets() || !openSocket(listener) || !bindLoopback(listener, port)) return 1;
  if (!listenOn(listener, 8)) return 1;
  for (int i = 0; i < parkedThreads; ++i) {
    if (!startThread([&large] { serveForever(large); })) return 1;
  }
  if (!startThread([&listener] { acceptForever(listener); })) return 1;
  char byte = 0;
  std::size_t got = 0;
  while (readSome(standardInput(), &byte, 1, got) == ReadResult::data) {
  }
  exitProcess(0);
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main(int argc, char** argv) {
  using namespace media::win::chrome_inspect;
  return argc == 2 ? respond(static_cast<std::uint16_t>(std::atoi(argv[1]))) : 1;
}
