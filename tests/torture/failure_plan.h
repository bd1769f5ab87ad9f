#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

// What fails next in a program that is being tortured. The plan lies in a file that the program and
// its driver (tests/torture/plan.py, which has the same layout) map together; MORVA_TORTURE names
// it, and without it nothing fails.
//
// A place is a call stack, and how often it has been seen in this run. Each place fails once: the
// first one of a run that has not been tried yet, and then nothing more until the next arming.
namespace media::win::chrome_inspect {

enum class FailingKind : std::uint64_t { none, memory, services };

struct FailurePlan {
  static constexpr std::size_t maxDepth = 64;
  static constexpr std::size_t maxSpared = 64;
  static constexpr std::size_t maxTried = 65536;
  static constexpr std::size_t maxSeen = 16384;

  struct Range {
    std::uint64_t begin;
    std::uint64_t end;
  };
  struct Seen {
    std::uint64_t stack;
    std::uint64_t run;
    std::uint64_t times;
  };

  std::atomic<FailingKind> armed;
  std::uint64_t run;            // counts the armings
  std::uint64_t timesPerStack;  // later calls from the same stack are no places of their own
  std::uint64_t stride;         // of so many places one is tried: those whose number leaves `phase`
  std::uint64_t phase;
  std::uint64_t calls;     // since the arming
  std::uint64_t failures;  // 0 or 1, since the arming
  std::uint64_t detail;    // of what failed: bytes asked for, or a descriptor
  std::array<char, 64> name;
  std::uint64_t depth;
  std::array<std::uint64_t, maxDepth> stack;  // return addresses, the innermost first
  std::uint64_t sparedCount;
  std::array<Range, maxSpared> spared;  // code in which nothing fails
  std::array<std::uint64_t, maxTried> tried;
  std::array<Seen, maxSeen> seen;
};

// Whether this call has to fail. Threads: any. Allocates nothing.
bool mustFail(FailingKind kind, const char* name, std::uint64_t detail);

}  // namespace media::win::chrome_inspect
