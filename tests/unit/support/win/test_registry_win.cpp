#include "support/test_registry.h"

#include <windows.h>

namespace media::win::chrome_inspect {
namespace {

HKEY handleOf(RegistryRoot root) {
  return root == RegistryRoot::user ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

}  // namespace

RegistryTurn::RegistryTurn()
    : turn_(CreateMutexW(nullptr, FALSE, L"morva-registry-tests"), [](HANDLE mutex) {
        ReleaseMutex(mutex);
        CloseHandle(mutex);
      }) {
  WaitForSingleObject(turn_.get(), INFINITE);  // also when a test before this one was ended hard
}

bool storeInRegistry(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                     std::uint32_t type, const std::string& bytes) {
  return RegSetKeyValueW(handleOf(root), key.c_str(), value.c_str(), type, bytes.data(),
                         static_cast<DWORD>(bytes.size())) == ERROR_SUCCESS;
}

void deleteRegistryTree(RegistryRoot root, const std::wstring& key) {
  RegDeleteTreeW(handleOf(root), key.c_str());
}

}  // namespace media::win::chrome_inspect
