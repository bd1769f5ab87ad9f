#include "platform/posix/path_text_posix.h"

#include <gtest/gtest.h>

namespace media::win::chrome_inspect {
namespace {

TEST(PathText, IsEmptyForWhatANulWouldCutShort) {
  EXPECT_EQ(pathText(L"/caf\u00e9"), "/caf\xc3\xa9");
  EXPECT_EQ(pathText(std::wstring(L"/a\0b", 4)), "");
}

}  // namespace
}  // namespace media::win::chrome_inspect
