#include "platform/crypto.h"

#include <windows.h>
#include <bcrypt.h>

#include "platform/owned.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t digestBytes = 32;

struct AlgorithmTraits {
  using Raw = BCRYPT_ALG_HANDLE;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { BCryptCloseAlgorithmProvider(raw, 0); }
};
using OwnedAlgorithm = Owned<AlgorithmTraits>;

OwnedAlgorithm openAlgorithm(const wchar_t* name) {
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  const NTSTATUS status = BCryptOpenAlgorithmProvider(&algorithm, name, nullptr, 0);
  return OwnedAlgorithm(status >= 0 ? algorithm : nullptr);
}

}  // namespace

std::string sha256(std::string_view bytes) {
  const OwnedAlgorithm algorithm = openAlgorithm(BCRYPT_SHA256_ALGORITHM);
  if (!algorithm) return {};
  std::string input(bytes);  // the call takes no constant bytes
  std::string digest(digestBytes, '\0');
  const NTSTATUS status = BCryptHash(
      algorithm.get(), nullptr, 0, reinterpret_cast<PUCHAR>(input.data()),
      static_cast<ULONG>(input.size()), reinterpret_cast<PUCHAR>(digest.data()), digestBytes);
  return status >= 0 ? digest : std::string();
}

bool randomBytes(unsigned char* buffer, std::size_t size) {
  const NTSTATUS status =
      BCryptGenRandom(nullptr, buffer, static_cast<ULONG>(size), BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  return status >= 0;
}

}  // namespace media::win::chrome_inspect
