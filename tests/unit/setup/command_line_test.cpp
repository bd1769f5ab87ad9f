// What a person may type, and the help about it.
#include "setup/command_line.h"

#include <sstream>

#include "common/product_version.h"
#include "setup/help_text.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string devId(32, 'b');

TEST(IsUserCommand, NeverTakesABrowserForAPerson) {
  const auto onConsole = [] { return true; };
  const auto fromProgram = [] { return false; };
  const auto unasked = [] {
    ADD_FAILURE() << "was asked";
    return true;
  };
  for (const Arguments& browsers : {Arguments{"chrome-extension://a/", "--parent-window=0"},
                                    Arguments{"--parent-window=5", "chrome-extension://a/"},
                                    Arguments{"chrome-extension://a/", "--doctor"}}) {
    EXPECT_FALSE(isUserCommand(browsers, onConsole)) << browsers[0];
  }
  EXPECT_FALSE(isUserCommand({"chrome-extension://a/"}, unasked));
  for (const char* option : {"--doctor", "--parent-window", "-h"}) {
    EXPECT_TRUE(isUserCommand({option}, unasked)) << option;
  }
  for (const Arguments& other : {Arguments{}, Arguments{""}, Arguments{"https://a/"}}) {
    EXPECT_TRUE(isUserCommand(other, onConsole));
    EXPECT_FALSE(isUserCommand(other, fromProgram));
  }
}

const std::pair<Arguments, CommandLine> goodCases[] = {
    {{}, {UserCommand::help}},
    {{"--help"}, {UserCommand::help}},
    {{"-h"}, {UserCommand::help}},
    {{"--version"}, {UserCommand::version}},
    {{"--register", "--browser", "edge"}, {UserCommand::registerHost, {"edge"}}},
    {{"--browser=Edge", "--browser", "chrome", "--browser=EDGE", "--unregister", "--dry-run"},
     {UserCommand::unregisterHost, {"edge", "chrome"}, {}, true}},
    {{"--register", "--extension-id", devId}, {UserCommand::registerHost, {}, {devId}}},
    {{"--json", "--doctor"}, {UserCommand::doctor, {}, {}, false, true}},
    {{"--register", "--all-users"}, {UserCommand::registerHost, {}, {}, false, false, true}},
    {{"--all-users", "--unregister"}, {UserCommand::unregisterHost, {}, {}, false, false, true}},
};

TEST(ReadCommandLine, TakesWhatTheHelpNames) {
  for (const auto& [arguments, wanted] : goodCases) {
    CommandLine line;
    std::string error;
    EXPECT_TRUE(readCommandLine(arguments, line, error)) << error;
    EXPECT_EQ(line.command, wanted.command) << testing::PrintToString(arguments);
    EXPECT_EQ(line.browsers, wanted.browsers);
    EXPECT_EQ(line.extensionIds, wanted.extensionIds);
    EXPECT_EQ(line.dryRun, wanted.dryRun);
    EXPECT_EQ(line.json, wanted.json);
    EXPECT_EQ(line.allUsers, wanted.allUsers);
  }
}

const std::pair<Arguments, const char*> badCases[] = {
    {{"--foo"}, "unknown option \"--foo\""},
    {{"--version=1"}, "unknown option \"--version=1\""},
    {{"--register", "chrome"}, "unexpected argument \"chrome\""},
    {{"--register", "\xFF"}, "unexpected argument \"\xEF\xBF\xBD\""},
    {{"--register", "--doctor"}, "--register and --doctor do not go together"},
    {{"--doctor", "--doctor"}, "--doctor and --doctor do not go together"},
    {{"--json"}, "--json does not go alone"},
    {{"--register", "--json"}, "--json does not go with --register"},
    {{"--doctor", "--all-users"}, "--all-users does not go with --doctor"},
    {{"--doctor", "--dry-run"}, "--dry-run does not go with --doctor"},
    {{"--unregister", "--extension-id=bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb"},
     "--extension-id does not go with --unregister"},
    {{"--register", "--browser"}, "--browser needs a value"},
    {{"--register", "--browser="}, "--browser needs a value"},
    {{"--register", "--browser", "--dry-run"},
     "no browser \"--dry-run\"; there are chrome, edge, brave, vivaldi, chromium"},
    {{"--register", "--browser", "firefox"},
     "no browser \"firefox\"; there are chrome, edge, brave, vivaldi, chromium"},
    {{"--register", "--dry-run=yes"}, "--dry-run takes no value"},
    {{"--register", "--extension-id", "abc"},
     "\"abc\" is no extension id, which is 32 letters from a to p"},
};

TEST(ReadCommandLine, ReportsWhatIsWrong) {
  for (const auto& [arguments, wanted] : badCases) {
    SCOPED_TRACE(wanted);
    CommandLine line;
    std::string error;
    EXPECT_FALSE(readCommandLine(arguments, line, error));
    EXPECT_EQ(error, wanted);
  }
  CommandLine line;
  std::string error;
  EXPECT_FALSE(readCommandLine({"--" + std::string(5000, 'x')}, line, error));
  EXPECT_LT(error.size(), 300U);  // a long word is cut
}

TEST(IsExtensionId, IsThirtyTwoLettersFromAToP) {
  EXPECT_TRUE(isExtensionId("kdhmgaeofpbjilnckdhmgaeofpbjilnc"));
  EXPECT_TRUE(isExtensionId(std::string(31, 'a') + "p"));
  for (const std::string& id :
       {std::string(), std::string(31, 'a'), std::string(33, 'a'), std::string(31, 'a') + "q",
        std::string(31, 'a') + "A", std::string(31, 'a') + "1"}) {
    EXPECT_FALSE(isExtensionId(id)) << id;
  }
}

TEST(HelpText, NamesEveryOptionAndSaysWhoStartsTheProgram) {
  const std::string help = helpText();
  for (const char* word : {"--help", "-h", "--version", "--register", "--unregister", "--doctor",
                           "--browser", "--extension-id", "--dry-run", "--json", "--all-users",
                           "chrome, edge, brave, vivaldi, chromium",
                           "Chrome starts this program by itself", productVersion}) {
    EXPECT_NE(help.find(word), std::string::npos) << word;
  }
}

TEST(HelpText, FitsAConsole) {
  std::istringstream lines(helpText());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 100U) << line;
}

}  // namespace
}  // namespace media::win::chrome_inspect
