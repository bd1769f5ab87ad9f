#include "platform/byte_stream.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "platform/posix/descriptor_posix.h"

namespace media::win::chrome_inspect {
namespace {

int descriptorOf(StreamId stream) { return static_cast<int>(stream); }

std::size_t oneCall(std::size_t size) { return std::min<std::size_t>(size, INT_MAX); }

// Where the streams are; written before any thread exists.
int ownInput = STDIN_FILENO;
int ownOutput = STDOUT_FILENO;

int takeStream(int number, int access) {
  const int stream = fcntl(number, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (stream < 0) return number;  // it stays where it is
  const OwnedDescriptor nothing =
      awayFromStandardStreams(OwnedDescriptor(::open("/dev/null", access | O_CLOEXEC)));
  (void)::dup2(nothing.get(), number);
  return stream;
}

}  // namespace

void StreamTraits::close(Raw raw) { ::close(descriptorOf(raw)); }

StreamId standardInput() { return ownInput; }

StreamId standardOutput() { return ownOutput; }

void takeStandardStreams() {
  ownInput = takeStream(STDIN_FILENO, O_RDONLY);
  ownOutput = takeStream(STDOUT_FILENO, O_WRONLY);
}

ReadResult readSome(StreamId stream, char* buffer, std::size_t capacity, std::size_t& got) {
  const ssize_t count =
      retryInterrupted([=] { return ::read(descriptorOf(stream), buffer, oneCall(capacity)); });
  if (count < 0) return ReadResult::failed;
  if (count == 0) return ReadResult::end;
  got = static_cast<std::size_t>(count);
  return ReadResult::data;
}

bool writeSome(StreamId stream, const char* bytes, std::size_t size, std::size_t& written) {
  const ssize_t count =
      retryInterrupted([=] { return ::write(descriptorOf(stream), bytes, oneCall(size)); });
  if (count <= 0) return false;
  written = static_cast<std::size_t>(count);
  return true;
}

bool makePipe(OwnedStream& readEnd, OwnedStream& writeEnd) {
  int ends[2] = {-1, -1};
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  OwnedDescriptor reading = awayFromStandardStreams(OwnedDescriptor(ends[0]));
  OwnedDescriptor writing = awayFromStandardStreams(OwnedDescriptor(ends[1]));
  if (!reading || !writing) return false;
  readEnd.reset(reading.release());
  writeEnd.reset(writing.release());
  return true;
}

}  // namespace media::win::chrome_inspect
