#include "agent_process/cli_dir.h"

#include <mutex>
#include <utility>

#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

struct CliDir {
  std::mutex cliDirMutex;  // guards what follows
  std::wstring cliDirSetting;
};

CliDir& cliDir() {
  static CliDir& dir = leaked<CliDir>();
  return dir;
}

}  // namespace

std::wstring savedCliDir() {
  const std::lock_guard lock(cliDir().cliDirMutex);
  return cliDir().cliDirSetting;
}

void saveCliDir(std::wstring folder) {
  const std::lock_guard lock(cliDir().cliDirMutex);
  cliDir().cliDirSetting = std::move(folder);
}

}  // namespace media::win::chrome_inspect
