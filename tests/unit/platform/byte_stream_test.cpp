#include "platform/byte_stream.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/process_control.h"
#include "support/test_thread.h"

namespace media::win::chrome_inspect {
namespace {

struct Pipe {
  Pipe() { made = makePipe(readEnd, writeEnd); }

  bool write(const std::string& bytes) const {
    std::size_t written = 0;
    for (std::size_t done = 0; done < bytes.size(); done += written) {
      if (!writeSome(writeEnd.get(), bytes.data() + done, bytes.size() - done, written)) {
        return false;
      }
    }
    return true;
  }

  OwnedStream readEnd;
  OwnedStream writeEnd;
  bool made = false;
};

// Everything up to the end; `result` is what ended it.
std::string readAll(StreamId stream, std::size_t capacity, ReadResult& result) {
  std::string all;
  std::string buffer(capacity, '\0');
  std::size_t got = 0;
  while ((result = readSome(stream, buffer.data(), capacity, got)) == ReadResult::data) {
    all.append(buffer, 0, got);
  }
  return all;
}

TEST(MakePipe, GivesTwoEndsThatAreClosedByTheirOwners) {
  for (int i = 0; i < 3000; ++i) {  // more than a process may have open at once
    const Pipe pipe;
    ASSERT_TRUE(pipe.made) << i;
    ASSERT_TRUE(pipe.readEnd);
    ASSERT_TRUE(pipe.writeEnd);
  }
}

TEST(ReadSome, TakesWhatIsThereAndNoMoreThanFits) {
  const Pipe pipe;
  ASSERT_TRUE(pipe.write("abcde"));
  char buffer[8] = {};
  std::size_t got = 0;
  ASSERT_EQ(readSome(pipe.readEnd.get(), buffer, 2, got), ReadResult::data);
  EXPECT_EQ(std::string(buffer, got), "ab");
  ASSERT_EQ(readSome(pipe.readEnd.get(), buffer, sizeof buffer, got), ReadResult::data);
  EXPECT_EQ(std::string(buffer, got), "cde");
}

TEST(ReadSome, PassesEveryByteUnchanged) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  bytes += "\r\n\n\x1a after";
  Pipe pipe;
  ASSERT_TRUE(pipe.write(bytes));
  pipe.writeEnd.reset();
  ReadResult result = ReadResult::data;
  EXPECT_EQ(readAll(pipe.readEnd.get(), 7, result), bytes);
  EXPECT_EQ(result, ReadResult::end);
}

TEST(ReadSome, WaitsForTheFirstByte) {
  const Pipe pipe;
  TestThread writer([&pipe] { (void)pipe.write("x"); });
  char byte = 0;
  std::size_t got = 0;
  EXPECT_EQ(readSome(pipe.readEnd.get(), &byte, 1, got), ReadResult::data);
  EXPECT_EQ(byte, 'x');
}

TEST(ReadSome, TellsTheClosedFarEndAsTheEndAndLeavesTheCount) {
  Pipe pipe;
  pipe.writeEnd.reset();
  char byte = 0;
  std::size_t got = 42;
  EXPECT_EQ(readSome(pipe.readEnd.get(), &byte, 1, got), ReadResult::end);
  EXPECT_EQ(readSome(pipe.readEnd.get(), &byte, 1, got), ReadResult::end);
  EXPECT_EQ(got, 42U);
}

TEST(ReadSome, FailsOnAStreamThatCannotBeRead) {
  const Pipe pipe;
  char byte = 0;
  std::size_t got = 42;
  EXPECT_EQ(readSome(pipe.writeEnd.get(), &byte, 1, got), ReadResult::failed);
  EXPECT_EQ(got, 42U);
}

TEST(WriteSome, BringsAMegabyteThroughAPipe) {
  Pipe pipe;
  const std::string bytes(1'000'000, 'm');
  bool wrote = false;
  TestThread writer([&] {
    wrote = pipe.write(bytes);
    pipe.writeEnd.reset();
  });
  ReadResult result = ReadResult::data;
  EXPECT_EQ(readAll(pipe.readEnd.get(), 4096, result), bytes);
  EXPECT_EQ(result, ReadResult::end);
  writer.join();
  EXPECT_TRUE(wrote);
}

TEST(WriteSome, IsFalseWhenTheReaderHasGoneAndTheProcessLives) {
  prepareProcess();
  Pipe pipe;
  pipe.readEnd.reset();
  std::size_t written = 42;
  EXPECT_FALSE(writeSome(pipe.writeEnd.get(), "x", 1, written));
  EXPECT_FALSE(writeSome(pipe.writeEnd.get(), "x", 1, written));
  EXPECT_EQ(written, 42U);
}

TEST(WriteSome, IsFalseOnAStreamThatCannotBeWritten) {
  const Pipe pipe;
  std::size_t written = 0;
  EXPECT_FALSE(writeSome(pipe.readEnd.get(), "x", 1, written));
}

}  // namespace
}  // namespace media::win::chrome_inspect
