#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

// Sends one and the same request over and over, a new connection each time, and says how long that
// took and how many answers were not whole: request_driver PORT CLIENTS REQUESTS ANSWER_BYTES, the
// request on standard input. A script would measure itself.
namespace {

// The bytes that came back until the connection ended; 0 when there was no connection.
std::size_t bytesAnswered(const sockaddr_in& address, const std::string& request) {
  const int connection = socket(AF_INET, SOCK_STREAM, 0);
  std::size_t received = 0;
  static thread_local std::array<char, 262144> piece;
  if (connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      send(connection, request.data(), request.size(), MSG_NOSIGNAL) ==
          static_cast<ssize_t>(request.size())) {
    for (ssize_t got = 1; got > 0;) {
      got = recv(connection, piece.data(), piece.size(), 0);
      if (got > 0) received += static_cast<std::size_t>(got);
    }
  }
  close(connection);
  return received;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 1;
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(argv[1])));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int clients = std::atoi(argv[2]);
  const auto wanted = static_cast<std::size_t>(std::atoll(argv[4]));
  const std::string request(std::istreambuf_iterator<char>(std::cin), {});
  std::atomic<int> left = std::atoi(argv[3]);
  std::atomic<int> lost = 0;
  const auto started = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      while (left-- > 0) lost += bytesAnswered(address, request) == wanted ? 0 : 1;
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
  std::printf("%.6f %d\n", seconds.count(), lost.load());
  return 0;
}
