// An application's announcement of any bytes: it is refused, or has a port and a token that can be
// used; and is found in its folder when it is that of a process that runs.

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "app_ipc/cmd_ipc.h"
#include "app_ipc/instance_discovery.h"
#include "fuzz_input.h"
#include "support/test_folder.h"
#include "support/test_system.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t alwaysRuns = 1;

AppInstance foundWith(std::string_view announcement) {
  static const TestFolder appData;
  static const auto folder = appData.path() / "Quenlark" / "morva-viewer" / "instances" / "run-ipc";
  static const bool made = std::filesystem::create_directories(folder);
  require(made);
  setEnvironment("APPDATA", appData.path().string());
  std::ofstream(folder / "a.json", std::ios::binary) << announcement;
  return discoverAppInstance();
}

}  // namespace

void fuzz(std::string_view input) {
  AppInstance instance;
  std::uint32_t pid = 0;
  const bool accepted = readAnnouncement(std::string(input), instance, pid);
  const AppInstance found = foundWith(input);
  if (!accepted) return require(found.port == 0);
  if (pid == alwaysRuns) require(found.port == instance.port && found.token == instance.token);
  require(pid != 0 && instance.port > 0 && instance.port <= 65535);
  require(!instance.token.empty() && instance.host == "127.0.0.1");
  const std::size_t proof = cmdIpcProof("00", instance.token).size();
  require(proof == 0 || proof == 64);
}

}  // namespace media::win::chrome_inspect
