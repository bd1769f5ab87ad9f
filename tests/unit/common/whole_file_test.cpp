#include "common/whole_file.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/test_folder.h"

namespace media::win::chrome_inspect {
namespace {

TEST(ReadWholeFile, TakesARegularFileUpToItsLimit) {
  const TestFolder folder;
  const std::filesystem::path file = folder.path() / "file";
  std::string text = "before";
  EXPECT_FALSE(readWholeFile(file.wstring(), 4, text));
  EXPECT_FALSE(readWholeFile(folder.path().wstring(), 4, text));
  std::ofstream(file, std::ios::binary) << "a\r\nbc";
  EXPECT_FALSE(readWholeFile(file.wstring(), 4, text));
  EXPECT_EQ(text, "before");
  EXPECT_TRUE(readWholeFile(file.wstring(), 5, text));
  EXPECT_EQ(text, "a\r\nbc");
}

}  // namespace
}  // namespace media::win::chrome_inspect
