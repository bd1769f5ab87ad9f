#include "platform/sha256.h"

#include <windows.h>
#include <bcrypt.h>

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t digestBytes = 32;

}  // namespace

std::string sha256(std::string_view bytes) {
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  if (BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0) < 0) return {};
  std::string input(bytes);  // the call takes no constant bytes
  std::string digest(digestBytes, '\0');
  const NTSTATUS status = BCryptHash(algorithm, nullptr, 0, reinterpret_cast<PUCHAR>(input.data()),
                                     static_cast<ULONG>(input.size()),
                                     reinterpret_cast<PUCHAR>(digest.data()), digestBytes);
  BCryptCloseAlgorithmProvider(algorithm, 0);
  return status >= 0 ? digest : std::string();
}

}  // namespace media::win::chrome_inspect
