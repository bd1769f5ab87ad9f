#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

// An agent that does nothing but send events as fast as the network takes them. What a turn's
// prompt says is streamed:
//   bench:WAY:COUNT:BYTES     COUNT events with a text of at least BYTES each, numbered from 0, in
//   a
//                             send for each ("each"), all in one ("once") or byte by byte ("bytes")
//   bench:paced:COUNT:MICROS  one event in so many microseconds, its text the time of its send
// It ends with "[DONE]" and with the connection. A feed stays open and silent; all else is ready.
namespace {

constexpr std::uint16_t port = 8090;
constexpr std::string_view streamHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n";
constexpr std::string_view ready =
    "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 14\r\n"
    "Connection: close\r\n\r\n{\"ready\":true}";
constexpr std::string_view lastEvent = "data: [DONE]\n\n";

std::string eventOf(const std::string& text) {
  return R"(data: {"id":"bench","object":"chat.completion.chunk","model":"bench","choices":)"
         R"([{"index":0,"delta":{"content":")" +
         text + "\"},\"finish_reason\":null}]}\n\n";
}

// Made once: making it is not what is measured.
const std::string& wholeStream(int count, std::size_t size) {
  static std::mutex mutex;  // guards `made`
  static std::map<std::pair<int, std::size_t>, std::string> made;
  const std::lock_guard lock(mutex);
  std::string& stream = made[{count, size}];
  if (!stream.empty()) return stream;
  for (int i = 0; i < count; ++i) {
    std::string text = std::to_string(i) + ' ';
    if (text.size() < size) text.resize(size, 'x');
    stream += eventOf(text);
  }
  return stream += lastEvent;
}

bool sendAll(int connection, std::string_view bytes) {
  for (ssize_t sent = 1; sent > 0 && !bytes.empty();) {
    sent = send(connection, bytes.data(), bytes.size(), 0);
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return bytes.empty();
}

void streamPaced(int connection, int count, int micros) {
  for (int i = 0; i < count; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(micros));
    const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
    if (!sendAll(connection, eventOf(std::to_string(now.count())))) return;
  }
  (void)sendAll(connection, lastEvent);
}

void stream(int connection, std::string_view way, int count, int size) {
  if (!sendAll(connection, streamHead)) return;
  if (way == "paced") return streamPaced(connection, count, size);
  std::string_view left = wholeStream(count, static_cast<std::size_t>(size));
  for (std::size_t next = 0; !left.empty(); left.remove_prefix(next)) {
    next = way == "once" ? left.size() : way == "bytes" ? 1 : left.find("\n\n") + 2;
    if (!sendAll(connection, left.substr(0, next))) return;
  }
}

void serve(int connection) {
  const int now = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &now, sizeof now);
  std::string request;
  std::array<char, 65536> piece{};
  for (;;) {
    const ssize_t got = recv(connection, piece.data(), piece.size(), 0);
    if (got <= 0) break;
    request.append(piece.data(), static_cast<std::size_t>(got));
    if (request.starts_with("GET /v1/chat/events")) {
      (void)sendAll(connection, streamHead);  // and wait until the far side closes
      continue;
    }
    const std::size_t at = request.find("bench:");
    std::array<char, 8> way{};
    int count = 0;
    int size = 0;
    if (!request.starts_with("POST /v1/chat/completions")) {
      (void)sendAll(connection, ready);
    } else if (request.find('"', at) == std::string::npos) {
      continue;
    } else if (std::sscanf(&request[at], "bench:%7[a-z]:%d:%d", way.data(), &count, &size) == 3) {
      stream(connection, way.data(), count, size);
    }
    break;
  }
  close(connection);
}

}  // namespace

int main() {
  (void)std::signal(SIGPIPE, SIG_IGN);
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  const int again = 1;
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &again, sizeof again);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    std::perror("event source");
    return 1;
  }
  std::puts("ready");
  std::fflush(stdout);
  for (;;) {
    const int connection = accept(listener, nullptr, nullptr);
    if (connection >= 0) std::thread(serve, connection).detach();
  }
}
