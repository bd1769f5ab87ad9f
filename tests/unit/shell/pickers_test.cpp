#include "shell/pickers.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/captured_output.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

TEST(AttachContextPaths, SendsThePathsAsOneArgument) {
  CapturedOutput output;
  attachContextPaths(json::array());
  attachContextPaths({"a", 5, nullptr});
  EXPECT_EQ(eventsIn(output.finish()),
            CapturedOutput::Frames{R"({"args":[["a",5,null]],"method":"appendContextPaths"})"});
}

}  // namespace
}  // namespace media::win::chrome_inspect
