#include "platform/sha256.h"

#include <openssl/sha.h>

namespace media::win::chrome_inspect {

std::string sha256(std::string_view bytes) {
  std::string digest(SHA256_DIGEST_LENGTH, '\0');
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
         reinterpret_cast<unsigned char*>(digest.data()));
  return digest;
}

}  // namespace media::win::chrome_inspect
