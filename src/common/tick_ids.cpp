#include "common/tick_ids.h"

#include <algorithm>

#include "platform/clock.h"

namespace media::win::chrome_inspect {

std::uint64_t TickIds::next() {
  const Lock lock(mutex_);
  last_ = std::max(tickCountMs(), last_ + 1);
  return last_;
}

}  // namespace media::win::chrome_inspect
