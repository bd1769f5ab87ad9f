// An application's announcement of any bytes: it is refused, or gives a port and a token that can
// be used.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "app_ipc/cmd_ipc.h"
#include "app_ipc/instance_discovery.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace media::win::chrome_inspect;
  AppInstance instance;
  std::uint32_t pid = 0;
  if (!readAnnouncement(std::string(reinterpret_cast<const char*>(data), size), instance, pid)) {
    return 0;
  }
  if (pid == 0 || instance.port == 0 || instance.port > 65535) std::abort();
  if (instance.token.empty() || instance.host != "127.0.0.1") std::abort();
  const std::size_t proof = cmdIpcProof("00", instance.token).size();
  if (proof != 0 && proof != 64) std::abort();
  return 0;
}
