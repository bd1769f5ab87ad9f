#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz_input.h"

// Sends what the host writes to standard output nowhere; the fuzzer itself reports on the error
// stream.
extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  media::win::chrome_inspect::fuzz({reinterpret_cast<const char*>(data), size});
  return 0;
}
