#include "platform/environment.h"

#include <cstdlib>

#include "text/wide.h"

namespace media::win::chrome_inspect {

bool readEnvironment(const std::wstring& name, std::size_t maxCharacters, std::wstring& value) {
  const char* found = std::getenv(toUtf8(name).c_str());
  if (found == nullptr) return false;
  const std::wstring wide = toWide(found);
  if (wide.empty() || wide.size() >= maxCharacters) return false;
  value = wide;
  return true;
}

}  // namespace media::win::chrome_inspect
