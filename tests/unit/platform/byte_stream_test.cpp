#include "platform/byte_stream.h"

#include "platform/console.h"
#include "platform/process_control.h"
#include "support/test_pipe.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(MakePipe, MakesTwoEndsThatTheirOwnersClose) {
  for (int i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) {  // more than may be open at once
    const TestPipe pipe;
    ASSERT_TRUE(pipe.readEnd);
    ASSERT_TRUE(pipe.writeEnd);
  }
}

TEST(ReadSome, TakesWhatIsThereAndNoMoreThanFits) {
  const TestPipe pipe;
  ASSERT_TRUE(writeAll(pipe.writeEnd.get(), "abcde"));
  char buffer[8] = {};
  std::size_t got = 0;
  ASSERT_EQ(readSome(pipe.readEnd.get(), buffer, 2, got), ReadResult::data);
  EXPECT_EQ(std::string(buffer, got), "ab");
  ASSERT_EQ(readSome(pipe.readEnd.get(), buffer, sizeof buffer, got), ReadResult::data);
  EXPECT_EQ(std::string(buffer, got), "cde");
}

TEST(ReadSome, WaitsForBytesAndPassesEveryOneUnchanged) {
  std::string bytes = "\r\n\n\x1a after" + std::string(1'000'000, 'm');  // more than a pipe holds
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  const FedPipe pipe(bytes, bytes.size());
  EXPECT_EQ(readToEnd(pipe.id(), 4099), bytes);
}

TEST(ReadSome, LeavesTheCountAtTheEndAndOnFailure) {
  TestPipe pipe;
  char byte = 0;
  std::size_t got = 42;
  EXPECT_EQ(readSome(pipe.writeEnd.get(), &byte, 1, got), ReadResult::failed);
  pipe.writeEnd.reset();
  EXPECT_EQ(readSome(pipe.readEnd.get(), &byte, 1, got), ReadResult::end);
  EXPECT_EQ(readSome(pipe.readEnd.get(), &byte, 1, got), ReadResult::end);
  EXPECT_EQ(got, 42U);
}

TEST(WriteSome, IsFalseWithoutAReaderAndOnWhatCannotBeWrittenAndTheProcessLives) {
  prepareProcess();
  TestPipe pipe;
  std::size_t written = 42;
  EXPECT_FALSE(writeSome(pipe.readEnd.get(), "x", 1, written));
  pipe.readEnd.reset();
  EXPECT_FALSE(writeSome(pipe.writeEnd.get(), "x", 1, written));
  EXPECT_FALSE(writeSome(pipe.writeEnd.get(), "x", 1, written));
  EXPECT_EQ(written, 42U);
}

TEST(WriteText, PassesTheBytesOnToWhatIsNoConsole) {
  TestPipe pipe;
  EXPECT_FALSE(isConsole(pipe.readEnd.get()));
  EXPECT_FALSE(isConsole(pipe.writeEnd.get()));
  const std::string text = "gr\xC3\xBC\xC3\x9F\n\xFF";
  writeText(pipe.writeEnd.get(), text);
  pipe.writeEnd.reset();
  EXPECT_EQ(readToEnd(pipe.readEnd.get()), text);
}

}  // namespace
}  // namespace media::win::chrome_inspect
