#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/byte_stream.h"

// The client's end of a local named pipe (platform/named_pipe.h has the server's). Each wait has a
// limit, and another thread can end it. Windows side: overlapped calls (learn.microsoft.com,
// "Synchronous and Overlapped Input and Output"). POSIX twin: as there, a local socket, whose
// system keeps clients waiting in their turn: one that is connected may not be served yet.
namespace media::win::chrome_inspect {

// Ends waits: once raised it stays so.
struct SignalTraits {
  using Raw = std::intptr_t;
  static Raw none() { return -1; }
  static bool valid(Raw raw) { return raw != -1 && raw != 0; }
  static void close(Raw raw);
};
using OwnedSignal = Owned<SignalTraits>;

// False when the system makes none.
bool makeSignal(OwnedSignal& signal);

// Threads: any.
void raiseSignal(const OwnedSignal& signal);

// Waits until it is raised, up to `timeoutMs`. False when it was not.
bool waitForSignal(const OwnedSignal& signal, std::uint32_t timeoutMs);

// `ended` means that the server closed, or that the call failed.
enum class PipeCall { done, ended, timedOut, givenUp };

// The right to use a pipe before all others that ask in this way; taken, and given back by its end,
// by one thread.
struct TurnTraits {
  using Raw = std::intptr_t;
  static Raw none() { return 0; }
  static bool valid(Raw raw) { return raw != 0; }
  static void close(Raw raw);
};
using OwnedTurn = Owned<TurnTraits>;

// Waits until it is our turn to use the pipe `name`: first come, first served, over all processes
// of the user's session. Without it, whoever has just been served would be the first to find the
// pipe free again. `ended` when the system has no turns, and everybody may try. Windows side: a
// named mutex. POSIX: `done` at once, since the system keeps clients of a socket in turn itself.
PipeCall takeTurn(const char* name, OwnedTurn& turn, const OwnedSignal& signal,
                  std::uint32_t timeoutMs);

enum class PipeOpening { open, busy, absent, failed };

// Connects to the pipe `name` without waiting, for readPipe and writePipe only. The server learns
// who we are, and cannot act as us.
PipeOpening openPipe(const char* name, OwnedStream& pipe);

// Reads at least one byte and at most `capacity`, within `timeoutMs` and unless `signal` is raised.
// `got` is set with `done` only.
PipeCall readPipe(const OwnedStream& pipe, char* buffer, std::size_t capacity, std::size_t& got,
                  const OwnedSignal& signal, std::uint32_t timeoutMs);

// Writes at least one byte and at most `size` (size > 0) in the same way.
PipeCall writePipe(const OwnedStream& pipe, const char* bytes, std::size_t size,
                   std::size_t& written, const OwnedSignal& signal, std::uint32_t timeoutMs);

}  // namespace media::win::chrome_inspect
