#include "platform/random.h"

#include <windows.h>
#include <bcrypt.h>

namespace media::win::chrome_inspect {

bool randomBytes(unsigned char* buffer, std::size_t size) {
  const NTSTATUS status =
      BCryptGenRandom(nullptr, buffer, static_cast<ULONG>(size), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  return status >= 0;
}

}  // namespace media::win::chrome_inspect
