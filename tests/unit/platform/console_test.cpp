#include "platform/console.h"

#include <gtest/gtest.h>

#include <string>

namespace media::win::chrome_inspect {
namespace {

TEST(IsConsole, APipeIsNone) {
  OwnedStream readEnd;
  OwnedStream writeEnd;
  ASSERT_TRUE(makePipe(readEnd, writeEnd));
  EXPECT_FALSE(isConsole(readEnd.get()));
  EXPECT_FALSE(isConsole(writeEnd.get()));
}

TEST(WriteText, GivesAPipeTheBytesAsTheyAre) {
  OwnedStream readEnd;
  OwnedStream writeEnd;
  ASSERT_TRUE(makePipe(readEnd, writeEnd));
  const std::string text = "gr\xC3\xBC\xC3\x9F\n\xFF";
  writeText(writeEnd.get(), text);
  writeEnd.reset();
  char buffer[64];
  std::size_t got = 0;
  ASSERT_EQ(readSome(readEnd.get(), buffer, sizeof buffer, got), ReadResult::data);
  EXPECT_EQ(std::string(buffer, got), text);
  EXPECT_EQ(readSome(readEnd.get(), buffer, sizeof buffer, got), ReadResult::end);
}

}  // namespace
}  // namespace media::win::chrome_inspect
