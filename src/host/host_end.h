#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "host/panel_work.h"

// The end of the host, which comes with the end of standard input and must come in time whatever
// blocks.
namespace media::win::chrome_inspect {

// From the end of input on: for all replies to what had arrived; in which the host waits for
// something other than its output; and for everything.
inline constexpr std::uint32_t lastRepliesMs = 2000;
inline constexpr std::uint32_t lastWorkMs = 500;
inline constexpr std::uint32_t endLimitMs = 4000;

// Starts the thread that ends the process, with code 0, `limitMs` after `noteEndOfInput`. Called
// once, before any other thread starts, which may be impossible later. Without a thread for it the
// end has no limit.
void startEndGuard(std::uint32_t limitMs = endLimitMs);
void noteEndOfInput();

// Does these steps one after the other, then ends the process with code 0.
[[noreturn]] void endBy(const std::vector<std::function<void()>>& steps);

// What the host does at the end of its input: it aborts the agent's requests and ends the agent
// that it started, waits for the replies to what had arrived, and wakes who waits for the
// extension.
[[noreturn]] void endHost(PanelWork& work);

// How much longer the last replies are waited for. Pure; one object for one end.
class LastWait {
 public:
  // Whether to wait on, after `ms` milliseconds more in which the output was busy or not.
  bool goesOn(std::uint32_t ms, bool outputWasBusy);

 private:
  std::uint32_t totalMs_ = 0;
  std::uint32_t idleMs_ = 0;
};

}  // namespace media::win::chrome_inspect
