#include "support/test_registry.h"

#include <algorithm>
#include <fstream>

#include "support/test_folder.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* variable = "MORVA_REGISTRY";

fs::path folderOf(RegistryRoot root, const std::wstring& key) {
  std::string path = toUtf8(key);
  std::ranges::replace(path, '\\', '/');
  return fs::path(std::getenv(variable)) / (root == RegistryRoot::user ? "user" : "machine") / path;
}

}  // namespace

RegistryTurn::RegistryTurn() {
  const auto folder = std::make_shared<TestFolder>();
  setEnvironment(variable, folder->path().string());
  turn_ = folder;
}

bool storeInRegistry(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                     std::uint32_t type, const std::string& bytes) {
  const fs::path folder = folderOf(root, key);
  fs::create_directories(folder);
  std::ofstream file(folder / ("=" + toUtf8(value)), std::ios::binary);
  file << static_cast<char>('0' + type) << bytes;
  return static_cast<bool>(file.flush());
}

void deleteRegistryTree(RegistryRoot root, const std::wstring& key) {
  fs::remove_all(folderOf(root, key));
}

}  // namespace media::win::chrome_inspect
