#include "failure_plan.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unwind.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace media::win::chrome_inspect {
namespace {

struct Stack {
  std::array<std::uint64_t, FailurePlan::maxDepth> frames = {};
  std::size_t depth = 0;
};

FailurePlan* mapPlan() {
  const char* path = std::getenv("MORVA_TORTURE");
  if (path == nullptr) return nullptr;
  const int file = ::open(path, O_RDWR | O_CLOEXEC);
  void* const mapped =
      ::mmap(nullptr, sizeof(FailurePlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  return mapped != MAP_FAILED ? static_cast<FailurePlan*>(mapped) : nullptr;
}

// Set before main; what is called earlier never fails.
FailurePlan* const plan = mapPlan();

std::atomic_flag planIsUsed;          // by a thread that looks at more than `armed`
thread_local bool isInside = false;   // taking a stack may call what is watched here
constexpr std::size_t ownFrames = 2;  // takeStack and mustFail
constexpr std::uint64_t hashSeed = 14695981039346656037U;  // FNV-1a
constexpr std::uint64_t hashPrime = 1099511628211U;

void mix(std::uint64_t& hash, std::uint64_t value) {
  hash = (hash ^ value) * hashPrime;
  hash ^= hash >> 32U;
}

_Unwind_Reason_Code takeFrame(_Unwind_Context* context, void* to) {
  auto& stack = *static_cast<Stack*>(to);
  if (stack.depth == stack.frames.size()) return _URC_END_OF_STACK;
  stack.frames[stack.depth++] = _Unwind_GetIP(context);
  return _URC_NO_REASON;
}

bool isSpared(const Stack& stack) {
  for (std::size_t i = ownFrames; i < stack.depth; ++i) {
    for (std::size_t range = 0; range < plan->sparedCount; ++range) {
      const FailurePlan::Range& spared = plan->spared[range];
      if (stack.frames[i] > spared.begin && stack.frames[i] <= spared.end) return true;
    }
  }
  return false;
}

// How often this stack has been seen in this run, this time included.
std::uint64_t countOf(std::uint64_t stack) {
  for (std::size_t at = stack % FailurePlan::maxSeen;; at = (at + 1) % FailurePlan::maxSeen) {
    FailurePlan::Seen& entry = plan->seen[at];
    if (entry.run != plan->run) entry = {stack, plan->run, 0};
    if (entry.stack == stack) return ++entry.times;
  }
}

// Notes the place; false when it was noted before.
bool isNew(std::uint64_t place) {
  for (std::size_t at = place % FailurePlan::maxTried;; at = (at + 1) % FailurePlan::maxTried) {
    std::uint64_t& entry = plan->tried[at];
    if (entry == place) return false;
    if (entry == 0) {
      entry = place;
      return true;
    }
  }
}

bool isItsTurn(const Stack& stack, const char* name) {
  std::uint64_t hash = hashSeed;
  for (const char* letter = name; *letter != '\0'; ++letter) {
    mix(hash, static_cast<unsigned char>(*letter));
  }
  for (std::size_t i = ownFrames; i < stack.depth; ++i) mix(hash, stack.frames[i]);
  const std::uint64_t times = countOf(hash);
  if (times > plan->timesPerStack) return false;
  mix(hash, times);
  return hash % plan->stride == plan->phase && isNew(hash);
}

void note(const Stack& stack, const char* name, std::uint64_t detail) {
  plan->detail = detail;
  std::strncpy(plan->name.data(), name, plan->name.size() - 1);
  plan->depth = stack.depth - ownFrames;
  std::copy(stack.frames.begin() + ownFrames, stack.frames.end(), plan->stack.begin());
  plan->failures = 1;
  plan->armed = FailingKind::none;
}

bool decide(FailingKind kind, const char* name, std::uint64_t detail) {
  Stack stack;
  _Unwind_Backtrace(takeFrame, &stack);
  if (stack.depth <= ownFrames || isSpared(stack)) return false;
  while (planIsUsed.test_and_set()) continue;
  bool fails = false;
  if (plan->armed == kind) {
    ++plan->calls;
    fails = isItsTurn(stack, name);
    if (fails) note(stack, name, detail);
  }
  planIsUsed.clear();
  return fails;
}

}  // namespace

bool mustFail(FailingKind kind, const char* name, std::uint64_t detail) {
  if (plan == nullptr || isInside || plan->armed.load(std::memory_order_relaxed) != kind) {
    return false;
  }
  isInside = true;
  const bool fails = decide(kind, name, detail);
  isInside = false;
  return fails;
}

}  // namespace media::win::chrome_inspect
