#include "shell/pickers.h"

#include "support/captured_output.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(AttachContextPaths, SendsThePathsAsOneArgument) {
  CapturedOutput output;
  attachContextPaths(json::array());
  attachContextPaths({"a", 5, nullptr});
  EXPECT_EQ(eventsIn(output.finish()),
            CapturedOutput::Frames{R"({"args":[["a",5,null]],"method":"appendContextPaths"})"});
}

}  // namespace
}  // namespace media::win::chrome_inspect
