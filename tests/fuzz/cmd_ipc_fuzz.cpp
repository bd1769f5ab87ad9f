// An application that says anything on its connection: the exchange ends with a reply that can be
// sent, or with one of the known texts. When the first byte is odd, a proper challenge goes ahead.

#include "app_ipc/cmd_ipc.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>

namespace {

constexpr std::size_t socketRoom = 60'000;  // goes out without a reader
constexpr std::string_view challenge("\x10\0\0\0{\"nonce\":\"00ff\"}", 20);

constexpr const char* texts[] = {"cmd_ipc recv failed", "cmd_ipc frame too large",
                                 "cmd_ipc proof failed", "cmd_ipc send failed",
                                 "cmd_ipc authentication rejected"};

// Listens for as long as the fuzzer runs, and announces itself as the application.
class Application {
 public:
  Application() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const name = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    if (bind(listener_, name, size) != 0 || listen(listener_, 8) != 0) std::abort();
    if (getsockname(listener_, name, &size) != 0) std::abort();
    announce(ntohs(address.sin_port));
  }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  ~Application() { std::filesystem::remove_all(folder_); }

  // Says `bytes` on the next connection and listens to its end.
  void play(std::string_view bytes) const {
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    (void)!send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    shutdown(connection, SHUT_WR);
    std::array<char, 4096> buffer{};
    while (recv(connection, buffer.data(), buffer.size(), 0) > 0) continue;
    close(connection);
  }

 private:
  void announce(int port) {
    char name[] = "/tmp/morva-fuzz-XXXXXX";
    if (mkdtemp(name) == nullptr) std::abort();
    folder_ = name;
    const auto instances = folder_ / "Quenlark" / "morva-viewer" / "instances" / "run-ipc";
    std::filesystem::create_directories(instances);
    std::ofstream(instances / "a.json") << nlohmann::json{{"kind", "ui"},
                                                          {"transport", "tcp"},
                                                          {"pid", getpid()},
                                                          {"endpoint", std::to_string(port)},
                                                          {"token", "0b1c"}};
    setenv("APPDATA", name, 1);
  }

  int listener_;
  std::filesystem::path folder_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  static const Application application;
  if (size == 0) return 0;
  std::string bytes(data[0] % 2 == 1 ? challenge : std::string_view());
  bytes.append(reinterpret_cast<const char*>(data + 1), std::min(size - 1, socketRoom));
  std::thread player([&bytes] { application.play(bytes); });
  nlohmann::json reply = "before";
  std::string error;
  const bool ok = commandRun({{"id", "x"}}, reply, error);
  player.join();
  if (ok) {
    (void)reply.dump();
  } else if (reply != "before" || std::count(std::begin(texts), std::end(texts), error) != 1) {
    std::abort();
  }
  return 0;
}
