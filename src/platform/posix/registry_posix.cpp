#include "platform/registry.h"

#include <cerrno>

namespace media::win::chrome_inspect {

bool readRegistryString(RegistryRoot /*root*/, const std::wstring& /*key*/,
                        const std::wstring& /*value*/, std::size_t /*maxBytes*/,
                        std::string& /*data*/, RegistryView /*view*/) {
  return false;  // there is no registry here
}

bool readUserRegistryString(const std::wstring& key, const std::wstring& value,
                            std::size_t maxBytes, std::string& data) {
  return readRegistryString(RegistryRoot::user, key, value, maxBytes, data);
}

bool readRegistryNumber(RegistryRoot /*root*/, const std::wstring& /*key*/,
                        const std::wstring& /*value*/, std::uint32_t& /*number*/) {
  return false;
}

bool listRegistryKey(RegistryRoot /*root*/, const std::wstring& /*key*/,
                     RegistryKeyContent& /*content*/) {
  return false;
}

bool mayWriteRegistry(RegistryRoot root) { return root == RegistryRoot::user; }

bool writeRegistryString(RegistryRoot /*root*/, const std::wstring& /*key*/,
                         const std::wstring& /*value*/, const std::wstring& /*text*/,
                         std::uint32_t& systemError) {
  systemError = ENOSYS;
  return false;
}

bool deleteRegistryValue(RegistryRoot /*root*/, const std::wstring& /*key*/,
                         const std::wstring& /*value*/, std::uint32_t& systemError) {
  systemError = ENOSYS;
  return false;
}

bool deleteRegistryKeyIfEmpty(RegistryRoot /*root*/, const std::wstring& /*key*/,
                              std::uint32_t& systemError) {
  systemError = ENOSYS;
  return false;
}

}  // namespace media::win::chrome_inspect
