#include "platform/registry.h"

namespace media::win::chrome_inspect {

bool readUserRegistryString(const std::wstring& /*key*/, const std::wstring& /*value*/,
                            std::size_t /*maxBytes*/, std::string& /*data*/) {
  return false;  // there is no registry here
}

}  // namespace media::win::chrome_inspect
