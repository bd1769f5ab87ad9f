#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <utility>

#include "common/detached.h"

namespace media::win::chrome_inspect {

// The result of `work`, which runs on a thread of its own, or nothing when it takes longer than
// `timeoutMs` or no thread can be started. Work that came too late runs on by itself and its result
// is dropped: like every detached thread it owns copies of what it uses. What it throws in time is
// thrown here.
template <class Work>
auto runBounded(const char* name, std::uint32_t timeoutMs, Work work)
    -> std::optional<decltype(work())> {
  const auto task = std::make_shared<std::packaged_task<decltype(work())()>>(std::move(work));
  auto result = task->get_future();
  if (!runDetached(name, [task] { (*task)(); })) return std::nullopt;
  if (result.wait_for(std::chrono::milliseconds(timeoutMs)) != std::future_status::ready) {
    return std::nullopt;
  }
  return result.get();
}

}  // namespace media::win::chrome_inspect
