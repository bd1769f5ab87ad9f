// An application that says anything on its connection: the exchange ends with a reply that can be
// sent, or with one of the known texts. When the first byte is odd, a proper challenge goes ahead;
// when it is 2, the application has ended.

#include "app_ipc/cmd_ipc.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>

#include "fuzz_input.h"
#include "platform/sockets.h"
#include "support/test_folder.h"
#include "support/test_system.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t socketRoom = 60'000;  // goes out without a reader
constexpr std::string_view challenge("\x10\0\0\0{\"nonce\":\"00ff\"}", 20);

constexpr const char* texts[] = {"cmd_ipc recv failed", "cmd_ipc frame too large",
                                 "cmd_ipc proof failed", "cmd_ipc send failed",
                                 "cmd_ipc authentication rejected"};

// Listens for as long as the fuzzer runs, and announces itself as the application.
class Application {
 public:
  Application() {
    std::filesystem::create_directories(announcement_.parent_path());
    setEnvironment("APPDATA", folder_.path().string());
    start();
  }

  void start() {
    require(startSockets() && openSocket(listener_) && bindLoopback(listener_, 0));
    require(listenOn(listener_, 8));
    std::ofstream(announcement_) << nlohmann::json{{"kind", "ui"},
                                                   {"transport", "tcp"},
                                                   {"pid", ownProcessId()},
                                                   {"endpoint", std::to_string(portOf(listener_))},
                                                   {"token", "0b1c"}};
  }

  // Nobody listens any more; then nothing says that anybody did.
  void stop() { listener_.reset(); }
  void withdraw() const { std::filesystem::remove(announcement_); }

  // Says `bytes` on the next connection and listens to its end.
  void play(std::string_view bytes) const {
    OwnedSocket connection;
    require(acceptOne(listener_, connection));
    std::size_t count = 0;
    if (!bytes.empty()) (void)sendSome(connection, bytes.data(), bytes.size(), count);
    finishSending(connection);
    char buffer[4096];
    while (receiveSome(connection, buffer, sizeof buffer, count)) continue;
  }

 private:
  OwnedSocket listener_;
  TestFolder folder_;
  std::filesystem::path announcement_ =
      folder_.path() / "Quenlark" / "morva-viewer" / "instances" / "run-ipc" / "a.json";
};

void checkWithout(Application& application) {
  nlohmann::json reply;
  std::string error;
  application.stop();
  require(!commandRun({}, reply, error) && error == "cmd_ipc connect failed");
  application.withdraw();
  require(!commandRun({}, reply, error) && error == "morva is not running");
  application.start();
}

}  // namespace

void fuzz(std::string_view input) {
  static Application application;
  if (input.empty()) return;
  if (input[0] == 2) return checkWithout(application);
  std::string bytes(input[0] % 2 != 0 ? challenge : std::string_view());
  bytes.append(input.substr(1, socketRoom));
  std::thread player([&bytes] { application.play(bytes); });
  nlohmann::json reply = "before";
  std::string error;
  const bool ok = commandRun({{"id", "x"}}, reply, error);
  player.join();
  if (ok) return (void)reply.dump();
  require(reply == "before" && std::count(std::begin(texts), std::end(texts), error) == 1);
}

}  // namespace media::win::chrome_inspect
