#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/byte_stream.h"

namespace media::win::chrome_inspect {

// Both ends of a new pipe.
struct TestPipe {
  TestPipe() { EXPECT_TRUE(makePipe(readEnd, writeEnd)); }
  OwnedStream readEnd;
  OwnedStream writeEnd;
};

// All that comes until the end, at most `capacity` bytes at a time; fails the test when something
// else ends it.
inline std::string readToEnd(const OwnedStream& stream, std::size_t capacity = 4096) {
  std::string all;
  std::string buffer(capacity, '\0');
  std::size_t got = 0;
  ReadResult result = ReadResult::data;
  while ((result = readSome(stream.get(), buffer.data(), capacity, got)) == ReadResult::data) {
    all.append(buffer, 0, got);
  }
  EXPECT_EQ(result, ReadResult::end);
  return all;
}

}  // namespace media::win::chrome_inspect
