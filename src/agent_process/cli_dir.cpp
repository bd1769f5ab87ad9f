#include "agent_process/cli_dir.h"

#include <utility>

#include "platform/locks.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

struct CliDir {
  Mutex cliDirMutex;
  std::wstring cliDirSetting MORVA_GUARDED_BY(cliDirMutex);
};

CliDir& cliDir() {
  static CliDir& dir = leaked<CliDir>();
  return dir;
}

}  // namespace

std::wstring savedCliDir() {
  const Lock lock(cliDir().cliDirMutex);
  return cliDir().cliDirSetting;
}

void saveCliDir(std::wstring folder) {
  const Lock lock(cliDir().cliDirMutex);
  cliDir().cliDirSetting = std::move(folder);
}

}  // namespace media::win::chrome_inspect
