#pragma once

#include <cstdint>

#include "platform/locks.h"

namespace media::win::chrome_inspect {

// Hands out tick counts (milliseconds) as ids: each is the time of its call, or one more than the
// last when the clock has not moved since, so that no two are equal. Threads: any.
class TickIds {
 public:
  std::uint64_t next();

 private:
  Mutex mutex_;
  std::uint64_t last_ MORVA_GUARDED_BY(mutex_) = 0;
};

}  // namespace media::win::chrome_inspect
