#include "platform/random.h"

#include <sys/random.h>

#include "platform/posix/descriptor_posix.h"

namespace media::win::chrome_inspect {

bool randomBytes(unsigned char* buffer, std::size_t size) {
  // Requests of up to 256 bytes are never cut short.
  const ssize_t got = retryInterrupted([&] { return getrandom(buffer, size, 0); });
  return got >= 0 && static_cast<std::size_t>(got) == size;
}

}  // namespace media::win::chrome_inspect
