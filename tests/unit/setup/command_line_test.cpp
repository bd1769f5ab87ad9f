#include "setup/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace media::win::chrome_inspect {
namespace {

const std::string devId(32, 'b');

struct StartCase {
  const char* name;
  Arguments arguments;
  bool onConsole;
  bool isUser;
};

const StartCase startCases[] = {
    {"as Chrome does", {"chrome-extension://a/", "--parent-window=0"}, false, false},
    {"as Chrome does, from a console", {"chrome-extension://a/", "--parent-window=0"}, true, false},
    {"the window first", {"--parent-window=5", "chrome-extension://a/"}, true, false},
    {"an option behind the origin", {"chrome-extension://a/", "--doctor"}, true, false},
    {"nothing, from a program", {}, false, false},
    {"nothing, on a console", {}, true, true},
    {"an empty word, from a program", {""}, false, false},
    {"an option", {"--doctor"}, false, true},
    {"an unknown option", {"--parent-window"}, false, true},
    {"a short option", {"-h"}, false, true},
    {"a word, from a program", {"https://a/"}, false, false},
    {"a word, on a console", {"doctor"}, true, true},
};

TEST(IsUserCommand, NeverTakesABrowserForAPerson) {
  for (const StartCase& c : startCases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(isUserCommand(c.arguments, [&] { return c.onConsole; }), c.isUser);
  }
}

TEST(IsUserCommand, AsksForTheConsoleOnlyWhenItMatters) {
  const auto unasked = [] {
    ADD_FAILURE() << "was asked";
    return true;
  };
  EXPECT_FALSE(isUserCommand({"chrome-extension://a/"}, unasked));
  EXPECT_TRUE(isUserCommand({"--version"}, unasked));
}

struct GoodCase {
  const char* name;
  Arguments arguments;
  CommandLine wanted;
};

const GoodCase goodCases[] = {
    {"nothing", {}, {UserCommand::help}},
    {"help", {"--help"}, {UserCommand::help}},
    {"help in short", {"-h"}, {UserCommand::help}},
    {"version", {"--version"}, {UserCommand::version}},
    {"register", {"--register"}, {UserCommand::registerHost}},
    {"one browser", {"--register", "--browser", "edge"}, {UserCommand::registerHost, {"edge"}}},
    {"browsers before the command",
     {"--browser=Edge", "--browser", "chrome", "--browser=EDGE", "--unregister", "--dry-run"},
     {UserCommand::unregisterHost, {"edge", "chrome"}, {}, true}},
    {"extensions",
     {"--register", "--extension-id", devId, "--dry-run"},
     {UserCommand::registerHost, {}, {devId}, true}},
    {"doctor", {"--doctor"}, {UserCommand::doctor}},
    {"doctor for programs", {"--json", "--doctor"}, {UserCommand::doctor, {}, {}, false, true}},
};

TEST(ReadCommandLine, TakesWhatTheHelpNames) {
  for (const GoodCase& c : goodCases) {
    SCOPED_TRACE(c.name);
    CommandLine line;
    std::string error;
    EXPECT_TRUE(readCommandLine(c.arguments, line, error)) << error;
    EXPECT_EQ(line.command, c.wanted.command);
    EXPECT_EQ(line.browsers, c.wanted.browsers);
    EXPECT_EQ(line.extensionIds, c.wanted.extensionIds);
    EXPECT_EQ(line.dryRun, c.wanted.dryRun);
    EXPECT_EQ(line.json, c.wanted.json);
  }
}

struct BadCase {
  Arguments arguments;
  const char* error;
};

const BadCase badCases[] = {
    {{"--foo"}, "unknown option \"--foo\""},
    {{"--Doctor"}, "unknown option \"--Doctor\""},
    {{"--version=1"}, "unknown option \"--version=1\""},
    {{"-"}, "unknown option \"-\""},
    {{"--register", "chrome"}, "unexpected argument \"chrome\""},
    {{"--register", "\xFF"}, "unexpected argument \"\xEF\xBF\xBD\""},
    {{"--register", "--doctor"}, "--register and --doctor do not go together"},
    {{"--doctor", "--doctor"}, "--doctor and --doctor do not go together"},
    {{"--json"}, "--json does not go alone"},
    {{"--register", "--json"}, "--json does not go with --register"},
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

TEST(ReadCommandLine, SaysWhatIsWrong) {
  for (const BadCase& c : badCases) {
    SCOPED_TRACE(c.error);
    CommandLine line;
    std::string error;
    EXPECT_FALSE(readCommandLine(c.arguments, line, error));
    EXPECT_EQ(error, c.error);
  }
}

TEST(ReadCommandLine, ShowsALongWordInShort) {
  const std::string word = "--" + std::string(5000, 'x');
  CommandLine line;
  std::string error;
  EXPECT_FALSE(readCommandLine({word}, line, error));
  EXPECT_LT(error.size(), 300U);
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

}  // namespace
}  // namespace media::win::chrome_inspect
