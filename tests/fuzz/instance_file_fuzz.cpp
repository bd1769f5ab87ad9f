// An application's announcement of any bytes: it is refused, or gives a port and a token that can
// be used.

#include <string>

#include "app_ipc/cmd_ipc.h"
#include "app_ipc/instance_discovery.h"
#include "fuzz_input.h"

namespace media::win::chrome_inspect {

void fuzz(std::string_view input) {
  AppInstance instance;
  std::uint32_t pid = 0;
  if (!readAnnouncement(std::string(input), instance, pid)) return;
  require(pid != 0 && instance.port > 0 && instance.port <= 65535);
  require(!instance.token.empty() && instance.host == "127.0.0.1");
  const std::size_t proof = cmdIpcProof("00", instance.token).size();
  require(proof == 0 || proof == 64);
}

}  // namespace media::win::chrome_inspect
