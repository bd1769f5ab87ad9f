#pragma once

#include "platform/byte_stream.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {

// Both ends of a new pipe.
struct TestPipe {
  TestPipe() { EXPECT_TRUE(makePipe(readEnd, writeEnd)); }
  OwnedStream readEnd;
  OwnedStream writeEnd;
};

// All that comes until the end, at most `capacity` bytes at a time; fails the test when something
// else ends it.
inline std::string readToEnd(StreamId stream, std::size_t capacity = 4096) {
  std::string all;
  std::string buffer(capacity, '\0');
  std::size_t got = 0;
  ReadResult result = ReadResult::data;
  while ((result = readSome(stream, buffer.data(), capacity, got)) == ReadResult::data) {
    all.append(buffer, 0, got);
  }
  EXPECT_EQ(result, ReadResult::end);
  return all;
}

// Writes at most `chunk` bytes at a time. False when they cannot be written any more.
inline bool writeAll(StreamId stream, std::string_view bytes, std::size_t chunk = 65536) {
  for (std::size_t written = 0; !bytes.empty(); bytes.remove_prefix(written)) {
    if (!writeSome(stream, bytes.data(), std::min(chunk, bytes.size()), written)) return false;
  }
  return true;
}

// The reading side of a real pipe into which a thread writes `bytes`, `chunk` at a time, and then
// closes it.
class FedPipe {
 public:
  FedPipe(std::string bytes, std::size_t chunk)
      : feeder_([this, chunk, bytes = std::move(bytes)] {
          (void)writeAll(pipe_.writeEnd.get(), bytes, chunk);  // the test may have seen enough
          pipe_.writeEnd.reset();
        }) {}
  ~FedPipe() { pipe_.readEnd.reset(); }  // first: the feeder may be waiting for a reader
  StreamId id() const { return pipe_.readEnd.get(); }

 private:
  TestPipe pipe_;
  TestThread feeder_;
};

// The four bytes that head a frame with a body of `length` bytes.
inline std::string frameHeader(std::uint32_t length) {
  std::string header(sizeof length, '\0');
  std::memcpy(header.data(), &length, sizeof length);
  return header;
}

inline std::string frameOf(std::string_view body) {
  return frameHeader(static_cast<std::uint32_t>(body.size())).append(body);
}

}  // namespace media::win::chrome_inspect
