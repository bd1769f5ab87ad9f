#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/owned.h"

// Blocking reads and writes on a pipe, a file or a pipe instance.
// Windows side: ReadFile and WriteFile (learn.microsoft.com, fileapi.h).
namespace media::win::chrome_inspect {

// A HANDLE on Windows, a file descriptor elsewhere. Borrowed wherever it is an argument.
using StreamId = std::intptr_t;

struct StreamTraits {
  using Raw = StreamId;
  static Raw none() { return -1; }
  static bool valid(Raw raw) { return raw != -1 && raw != 0; }
  static void close(Raw raw);
};
using OwnedStream = Owned<StreamTraits>;

enum class ReadResult { data, end, failed };

// The process's own standard streams: those that were taken, else those that the system has at the
// moment of the call. Never closed by us.
StreamId standardInput();
StreamId standardOutput();

// Keeps the standard input and output for the two functions above: children do not inherit them,
// and whoever asks the system finds the null device. Called once, before any thread exists. A child
// that held the pipes would keep the browser from seeing our end. A library's start-up code asks
// for the type of the standard handles; of a pipe that a thread reads the answer would only come
// with the next frame, and the loader's lock is held meanwhile (GetFileType, learn.microsoft.com:
// synchronous handles serialise; Chromium's native messaging hosts close theirs for this reason).
void takeStandardStreams();

// One read call: blocks until there is at least one byte and takes at most `capacity` of them.
// A short read is normal on every system: the caller loops. `got` is set with `data` only;
// `end` means that the far side closed.
ReadResult readSome(StreamId stream, char* buffer, std::size_t capacity, std::size_t& got);

// One write call of at most `size` bytes (size > 0). False when it failed or took nothing.
bool writeSome(StreamId stream, const char* bytes, std::size_t size, std::size_t& written);

// A new anonymous pipe. Neither end is inherited by children. False when the system makes none.
bool makePipe(OwnedStream& readEnd, OwnedStream& writeEnd);

}  // namespace media::win::chrome_inspect
