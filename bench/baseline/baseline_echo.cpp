#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "plain_frames.h"
#include "platform/clock.h"
#include "platform/crypto.h"
#include "platform/file_dialog.h"
#include "platform/files.h"
#include "platform/http_client.h"
#include "platform/known_folders.h"
#include "platform/process.h"
#include "platform/process_control.h"
#include "platform/registry.h"
#include "platform/sockets.h"

// The least that a host can do: reads a frame, parses it, serialises it, writes it back. The host's
// round trip and start are compared with this program's.
namespace media::win::chrome_inspect {
namespace {

// Calls into every system library that the host calls into, so that the loader brings in the same
// ones for both and only our own work differs. Never run in a measurement.
void useTheHostsLibraries() {
  std::wstring text;
  std::string data;
  std::uint32_t systemError = 0;
  std::shared_ptr<HttpExchange> exchange;
  OwnedProcess process;
  std::vector<std::wstring> paths;
  const bool used =
      openHttpExchange(0, L"GET", L"/", {}, exchange) == HttpOpenResult::ok || startSockets() ||
      randomBytes(nullptr, 0) || roamingAppDataFolder(text) || packageLocalStateFolder(text) ||
      readUserRegistryString(text, text, 1, data) || sha256(data).empty() ||
      showFileDialog({}, paths, systemError) == DialogOutcome::chosen ||
      searchExecutable(text, text) ||
      spawnHidden(text, text, standardOutput(), process, systemError) == SpawnResult::ok;
  std::printf("%d %llu\n", used ? 1 : 0, static_cast<unsigned long long>(tickCountMs()));
}

int echo(int argc) {
  // The host is given two arguments at most, and so is this program when it is measured.
  if (argc > 3) useTheHostsLibraries();
  prepareProcess();
  std::string body;
  while (readPlainFrame(body)) {
    if (!writePlainFrame(nlohmann::json::parse(body).dump())) return 1;
  }
  return 0;
}

}  // namespace
}  // namespace media::win::chrome_inspect

int main(int argc, char**) { return media::win::chrome_inspect::echo(argc); }
