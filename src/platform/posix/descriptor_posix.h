#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/owned.h"

namespace media::win::chrome_inspect {

struct DescriptorTraits {
  using Raw = int;
  static Raw none() { return -1; }
  static bool valid(Raw raw) { return raw >= 0; }
  static void close(Raw raw) { ::close(raw); }
};
using OwnedDescriptor = Owned<DescriptorTraits>;

// A process that was started without standard streams is given their numbers for what it opens
// first; 0 would also look like "no stream". Moves such a descriptor; empty when that fails.
inline OwnedDescriptor awayFromStandardStreams(OwnedDescriptor descriptor) {
  if (!descriptor || descriptor.get() > STDERR_FILENO) return descriptor;
  return OwnedDescriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

// A signal that is handled, or a stop and continue, ends a call early; that is no failure.
template <class Call>
auto retryInterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

}  // namespace media::win::chrome_inspect
