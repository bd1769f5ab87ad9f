#include "platform/crypto.h"

#include <openssl/sha.h>
#include <sys/random.h>

#include "platform/posix/descriptor_posix.h"

namespace media::win::chrome_inspect {

std::string sha256(std::string_view bytes) {
  std::string digest(SHA256_DIGEST_LENGTH, '\0');
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
         reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

bool randomBytes(unsigned char* buffer, std::size_t size) {
  // Requests of up to 256 bytes are never cut short.
  const ssize_t got = retryInterrupted([&] { return getrandom(buffer, size, 0); });
  return got >= 0 && static_cast<std::size_t>(got) == size;
}

}  // namespace media::win::chrome_inspect
