#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/posix/descriptor_posix.h"

namespace media::win::chrome_inspect {

// A TCP connection to 127.0.0.1 whose blocking calls another thread can end. Each call waits up to
// its time-out in milliseconds, 0 without limit, and is false when it failed or after abort.
class AbortableSocket {
 public:
  // False when the system has no descriptors left; the object is then useless.
  bool open();

  bool connectTo(std::uint16_t port, int timeoutMs);
  bool sendAll(std::string_view bytes, int timeoutMs);
  // One network read. `got` is 0 when the far side has closed its direction.
  bool receiveSome(char* buffer, std::size_t capacity, int timeoutMs, std::size_t& got);

  // From any thread: every call, the running one too, fails from now on.
  void abort();
  bool aborted() const { return aborted_.load(); }

 private:
  bool waitFor(short events, int timeoutMs) const;

  OwnedDescriptor socket_;
  OwnedDescriptor wakeUp_;  // readable once aborted; it is never read
  std::atomic<bool> aborted_ = false;
};

}  // namespace media::win::chrome_inspect
