#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/registry.h"

namespace media::win::chrome_inspect {

// The registry for one test at a time: that of the user who runs it, or a fresh one on the twin.
class RegistryTurn {
 public:
  RegistryTurn();

 private:
  std::shared_ptr<void> turn_;
};

// The types of values, with their numbers in Windows.
inline constexpr std::uint32_t registryText = 1;
inline constexpr std::uint32_t registryExpandableText = 2;
inline constexpr std::uint32_t registryBinary = 3;
inline constexpr std::uint32_t registryNumber = 4;

// Stores a value of any type, as these bytes.
bool storeInRegistry(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                     std::uint32_t type, const std::string& bytes);

// Removes a key with all that is below it.
void deleteRegistryTree(RegistryRoot root, const std::wstring& key);

}  // namespace media::win::chrome_inspect
