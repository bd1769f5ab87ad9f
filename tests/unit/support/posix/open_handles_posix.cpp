#include "support/open_handles.h"

#include <filesystem>
#include <iterator>

namespace media::win::chrome_inspect {

const std::size_t handlesOfTheSystem = 0;

std::size_t openHandleCount() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(open), end(open)));
}

}  // namespace media::win::chrome_inspect
