#include "platform/clock.h"

#include <cerrno>
#include <ctime>

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint64_t msPerSecond = 1000;
constexpr std::uint64_t nsPerMs = 1'000'000;

}  // namespace

std::uint64_t tickCountMs() {
  timespec now = {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * msPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec) / nsPerMs;
}

void sleepMs(std::uint32_t ms) {
  timespec rest = {};
  rest.tv_sec = static_cast<time_t>(ms / msPerSecond);
  rest.tv_nsec = static_cast<long>(ms % msPerSecond * nsPerMs);
  while (nanosleep(&rest, &rest) == -1 && errno == EINTR) {
  }
}

}  // namespace media::win::chrome_inspect
