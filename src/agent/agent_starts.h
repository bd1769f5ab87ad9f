#pragma once

#include <cstdint>
#include <optional>
#include <string>

// Starting an agent: one caller at a time does, and the end of the host leaves no child behind.
// Threads: any.
namespace media::win::chrome_inspect {

// What a caller that needs an agent is to do.
enum class StartRole { leader, follower, ending };

// How many starts have come to an end so far.
std::uint64_t finishedStarts();

// Asks to start an agent; waits while another caller starts one. `leader`: nobody else is at it;
// call finishStart afterwards, with its error, or with none to say that it broke off. `follower`:
// another caller's start has ended since `seenStarts` was read, and `error` is its error, empty
// when it succeeded. `ending`: the host is.
StartRole joinStart(std::uint64_t seenStarts, std::string& error);
void finishStart(std::optional<std::string> error) noexcept;

// The moment between a process start and its adoption: while a permit lives, the end of the host
// waits for it (up to 1 s), so that no child is left behind unseen.
class SpawnPermit {
 public:
  SpawnPermit();
  ~SpawnPermit();
  SpawnPermit(const SpawnPermit&) = delete;
  SpawnPermit& operator=(const SpawnPermit&) = delete;
  // False when the host is ending: start nothing.
  bool granted() const { return granted_; }

 private:
  bool granted_;
};

}  // namespace media::win::chrome_inspect
