// Opening and picking, without a shell that would open a window.
#include "shell/path_opening.h"

#include "shell/pickers.h"
#include "support/captured_output.h"
#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(OpenPath, ReportsThatThereIsNoSuchFile) {
  const TestFolder folder;
  const std::string path = folder.path().string();
  for (const std::string& target :
       {path + "/missing", path + '\0', path + '\n', std::string("\xFF"), std::string(),
        std::string("file:///nowhere"), std::string("HTTP://127.0.0.1/")}) {
    for (const PathAction action : {PathAction::open, PathAction::reveal, PathAction::explore}) {
      std::string error;
      EXPECT_FALSE(openPath(target, action, error)) << target;
      EXPECT_EQ(error, "file not found") << target;
    }
  }
}

// What cannot be an address is no address: nothing is started, and nothing is wrong.
TEST(OpenUrl, StartsNothingForATextThatIsNoAddress) {
  for (const std::string& target :
       {std::string(), std::string("https://a/\0b", 12), std::string("https://a/\r\nb"),
        std::string("x\x7Fy"), std::string("https://\xFF")}) {
    std::string error = "untouched";
    EXPECT_TRUE(openUrl(target, error));
    if (target.starts_with("https")) {
      EXPECT_TRUE(openPath(target, PathAction::open, error));
    }
    EXPECT_EQ(error, "untouched");
  }
}

TEST(AttachContextPaths, SendsThePathsAsOneArgument) {
  CapturedOutput output;
  attachContextPaths(json::array());
  attachContextPaths({"a", 5, nullptr});
  EXPECT_EQ(eventsIn(output.finish()),
            CapturedOutput::Frames{R"({"args":[["a",5,null]],"method":"appendContextPaths"})"});
}

}  // namespace
}  // namespace media::win::chrome_inspect
