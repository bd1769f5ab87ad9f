#include "common/product_version.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

namespace media::win::chrome_inspect {
namespace {

TEST(ProductVersion, IsThreeNumbers) {
  EXPECT_TRUE(std::regex_match(std::string(productVersion), std::regex(R"(\d+\.\d+\.\d+)")))
      << productVersion;
}

}  // namespace
}  // namespace media::win::chrome_inspect
