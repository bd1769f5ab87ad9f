#include "host/user_command.h"

#include "common/product_version.h"
#include "setup/help_text.h"
#include "support/test_pipe.h"
#include "support/test_system.h"
#include "support/test_thread.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

// Runs a command; `printed` is what it wrote to standard output, which is more than a pipe holds.
int run(const Arguments& arguments, std::string& printed) {
  TestPipe pipe;
  const StreamId old = replaceStandardOutput(pipe.writeEnd.get());
  int code = 0;
  {
    const TestThread reader([&] { printed = readToEnd(pipe.readEnd.get()); });
    code = runUserCommand(arguments);
    restoreStandardOutput(old);
    pipe.writeEnd.reset();
  }
  return code;
}

TEST(RunUserCommand, PrintsHelpAndVersionAndNothingForAWrongCommandLine) {
  std::string printed;
  EXPECT_EQ(run({"--help"}, printed), 0);
  EXPECT_EQ(printed, helpText());
  EXPECT_EQ(run({"--version"}, printed), 0);
  EXPECT_EQ(printed, "morva-chrome-host " + std::string(productVersion) + "\n");
  EXPECT_EQ(run({"--no-such-option"}, printed), 2);
  EXPECT_EQ(printed, "");
}

TEST(RunUserCommand, SaysThatADryRunChangedNothing) {
  for (const char* command : {"--register", "--unregister"}) {
    std::string printed;
    EXPECT_EQ(run({command, "--dry-run"}, printed), 0);
    EXPECT_TRUE(printed.ends_with("\nnothing was changed\n")) << printed;
    EXPECT_NE(printed.find(command[2] == 'r' ? "would be written" : "is not there"),
              std::string::npos)
        << printed;
  }
}

TEST(RunUserCommand, FailsWhenTheDoctorFindsAProblem) {
  std::string printed;
  const int code = run({"--doctor", "--json"}, printed);
  EXPECT_EQ(code, nlohmann::json::parse(printed).at("ok") == true ? 0 : 1);
  EXPECT_EQ(run({"--doctor"}, printed), code);
  EXPECT_TRUE(printed.starts_with("morva-chrome-host ")) << printed;
}

}  // namespace
}  // namespace media::win::chrome_inspect
