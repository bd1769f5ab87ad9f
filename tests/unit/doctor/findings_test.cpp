// How the doctor judges what it has seen of the agent and of the places that the host needs.
#include "support/findings.h"

#include "common/paths.h"
#include "doctor/agent_findings.h"
#include "doctor/place_findings.h"
#include "platform/files.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using Answer = Readiness;

std::vector<CliLook> noProgram() {
  return {{"cli options", CliOutcome::notSet, {}},
          {"cli registry", CliOutcome::notSet, {}},
          {"cli alias", CliOutcome::missing, L"C:\\alias.exe"},
          {"cli SearchPath", CliOutcome::notOnPath, {}}};
}

std::vector<PortState> ports(Answer first, Answer rest = Answer::none) {
  std::vector<PortState> states;
  for (std::uint16_t port = 8090; port < 8095; ++port) {
    states.push_back({port, port == 8090 ? first : rest, 7});
  }
  return states;
}

constexpr const char* cliRemedy =
    "install the morva desktop application, or choose its folder in the panel's settings";

const std::tuple<const char*, bool, Answer, Answer, Health, const char*, const char*> wholeCases[] =
    {
        {"can be started", true, Answer::none, Answer::none, Health::ok,
         "none runs, the host starts one when it needs it", ""},
        {"runs", true, Answer::ready, Answer::none, Health::ok, "one is ready, the host uses it",
         ""},
        {"runs, but could not be started", false, Answer::ready, Answer::none, Health::note,
         "one is ready, the host uses it; should it end, the host could start none: its program "
         "was "
         "not found",
         cliRemedy},
        {"neither", false, Answer::none, Answer::none, Health::problem,
         "none runs, and the program that starts one was not found", cliRemedy},
        {"a foreign program", true, Answer::foreign, Answer::none, Health::ok,
         "none runs, the host starts one when it needs it", ""},
        {"no port is left", true, Answer::notReady, Answer::foreign, Health::problem,
         "none is ready, and other programs have all of its ports",
         "end one of the programs that listen on ports 8090 to 8094"},
};

TEST(JudgeAgent, JudgesTheWhole) {
  for (const auto& [name, hasProgram, first, rest, health, text, remedy] : wholeCases) {
    SCOPED_TRACE(name);
    std::vector<CliLook> looks = noProgram();
    if (hasProgram) looks[3] = {"cli SearchPath", CliOutcome::found, L"C:\\x.exe"};
    const Findings findings = judgeAgent(looks, ports(first, rest));
    const Finding& whole = find(findings, "agent");
    EXPECT_EQ(whole.health, health);
    EXPECT_EQ(whole.text, text);
    EXPECT_EQ(whole.remedy, remedy);
    // Whatever is wrong with one place or port is no problem by itself.
    EXPECT_EQ(problemsIn(findings), health == Health::problem ? 1 : 0);
  }
}

TEST(JudgeAgent, SaysWhyAPlaceWasPassedOver) {
  std::vector<CliLook> looks = noProgram();
  looks[0] = {"cli options", CliOutcome::insideWindowsApps, L"C:\\WindowsApps\\a"};
  const Findings findings = judgeAgent(looks, ports(Answer::none));
  for (const char* place : {"cli.options", "cli.registry", "cli.alias", "cli.searchPath"}) {
    EXPECT_EQ(find(findings, place).health, Health::note) << place;
  }
  EXPECT_EQ(find(findings, "cli.options").text,
            "lies in the store of packaged apps, whose files cannot be started: "
            "C:\\WindowsApps\\a");
  EXPECT_EQ(find(findings, "cli.registry").text,
            "there is no value \"cli\" beside the registration with Chrome");
  EXPECT_EQ(find(findings, "cli.alias").text, "there is no such file: C:\\alias.exe");
  EXPECT_EQ(find(findings, "cli.searchPath").text, "morva-viewer-cli.exe is not on it");
  looks[2] = {"cli alias", CliOutcome::unavailable, {}};
  EXPECT_EQ(find(judgeAgent(looks, ports(Answer::none)), "cli.alias").text,
            "the system names no folder for local application data");
}

TEST(JudgeAgent, UsesTheFirstPlaceThatHasIt) {
  std::vector<CliLook> looks = noProgram();
  looks[1] = {"cli registry", CliOutcome::found, L"C:\\first.exe"};
  looks[2] = {"cli alias", CliOutcome::found, L"C:\\second.exe"};
  const Findings findings = judgeAgent(looks, ports(Answer::none));
  EXPECT_EQ(find(findings, "cli.registry").text, "found: C:\\first.exe");
  EXPECT_EQ(find(findings, "cli.registry").health, Health::ok);
  EXPECT_EQ(find(findings, "cli.options").text,
            "none is saved; what the panel's settings save holds for the host that runs");
  EXPECT_EQ(find(findings, "cli.alias").text,
            "found: C:\\second.exe (not used, as an earlier place has one)");
}

TEST(JudgeAgent, SaysWhatEachPortAnswersAndHowFast) {
  const std::tuple<Answer, Health, const char*> cases[] = {
      {Answer::ready, Health::ok, "an agent is ready (7 ms)"},
      {Answer::notReady, Health::note, "an agent answers that it is not ready (7 ms)"},
      {Answer::foreign, Health::note, "another program answers (7 ms)"},
      {Answer::none, Health::note, "nobody answers (7 ms)"},
  };
  for (const auto& [answer, health, text] : cases) {
    const Findings findings = judgeAgent(noProgram(), ports(answer));
    EXPECT_EQ(find(findings, "agent.port.8090").text, text);
    EXPECT_EQ(find(findings, "agent.port.8090").health, health);
  }
}

TEST(LookAtCliSources, LooksAtAllFour) {
  const std::vector<CliLook> looks = lookAtCliSources();
  ASSERT_EQ(looks.size(), cliSourceCount);
  EXPECT_STREQ(looks[0].source, "cli options");
  EXPECT_STREQ(looks[3].source, "cli SearchPath");
}

FolderState wellFolder() {
  FolderState state;
  state.folder = "C:\\work";
  state.drops = "C:\\work\\chat-paste";
  state.exists = state.mayWrite = state.onDrive = true;
  return state;
}

template <class State, class Change>
State with(State state, Change change) {
  change(state);
  return state;
}

const std::string separator(1, static_cast<char>(pathSeparator));

struct FindingCase {
  const char* name;
  Finding finding;
  Health health;
  std::string text;
  const char* remedy = "";
};
const FindingCase findingCases[] = {
    {"the first port", judgeToolServer({{}, 39270, true}), Health::ok, "can listen on port 39270"},
    {"the third port", judgeToolServer({{39270, 39271}, 39272, true}), Health::ok,
     "can listen on port 39272; taken, by other hosts perhaps: 39270, 39271"},
    {"no port", judgeToolServer({{39270}, 0, true}), Health::problem,
     "no port from 39270 to 39279 is free: a host that starts now has no browser tools and takes "
     "no files",
     "end the programs that listen on them; each browser profile has one host"},
    {"no random bytes", judgeToolServer({{}, 39270, false}), Health::problem,
     "the system returns no random bytes, so there is no session token",
     "restart Windows; if that does not help, repair it"},
    {"a folder", judgeFolder(wellFolder()), Health::ok, "C:\\work"},
    {"no folder", judgeFolder({}), Health::problem,
     "the system names no folder for application data", "repair the Windows user profile"},
    {"a folder to be made", judgeFolder(with(wellFolder(), [](auto& s) { s.exists = false; })),
     Health::ok, "C:\\work, made when it is needed"},
    {"a folder that is locked",
     judgeFolder(with(wellFolder(), [](auto& s) { s.mayWrite = false; })), Health::problem,
     "C:\\work cannot be written to", "give your account the right to write there"},
    {"a folder elsewhere", judgeFolder(with(wellFolder(), [](auto& s) { s.onDrive = false; })),
     Health::note,
     "C:\\work is no folder of this machine: pasted files cannot be shown in the panel",
     "keep the application data folder on a local drive"},
    {"almost full", judgeDrops(with(wellFolder(), [](auto& s) { s.files = 300, s.recent = 199; })),
     Health::ok, "300 files, 199 of the last day (at most 200)"},
    {"full", judgeDrops(with(wellFolder(), [](auto& s) { s.files = s.recent = 200; })),
     Health::problem, "200 files of the last day, so no more are taken",
     "delete files from C:\\work\\chat-paste"},
    {"a link", judgeDrops(with(wellFolder(), [](auto& s) { s.dropsIsLink = true; })),
     Health::problem, "C:\\work\\chat-paste is a link, so files are refused",
     "delete the link; the host makes a folder"},
    {"unreadable", judgeDrops(with(wellFolder(), [](auto& s) { s.dropsReadable = false; })),
     Health::problem, "C:\\work\\chat-paste cannot be read, so files are refused",
     "give your account the right to read and write there"},
    {"no crash", judgeCrashes({"C:\\crashes", {}}), Health::ok, "none is on record"},
    {"two crashes",
     judgeCrashes(
         {"C:\\crashes",
          {{L"new.dmp", "0.2.0", "2026-11-22 08:44:55 UTC"}, {L"old.dmp", "0.1.0", "then"}}}),
     Health::note,
     "version 0.2.0 crashed on 2026-11-22 08:44:55 UTC: C:\\crashes" + separator + "new.dmp",
     "send that file to those who maintain the program, if you like; pieces of chats may be in it"},
    {"no application", judgeApplication({}), Health::note,
     "does not run; commands that need its window fail",
     "start the desktop application when you need them"},
    {"an application", judgeApplication({8123, true}), Health::ok,
     "runs and takes commands on port 8123"},
    {"a silent application", judgeApplication({8123, false}), Health::problem,
     "announces itself on port 8123, but does not answer there", "restart the desktop application"},
    {"no pipe", judgePipe({PipeState::absent}), Health::ok,
     "its name is free, the next host that starts serves it"},
    {"a pipe", judgePipe({PipeState::listening, true}), Health::ok,
     "a host serves it and answers: MCP clients reach the browser"},
    {"a silent pipe", judgePipe({PipeState::listening}), Health::note,
     "a host serves it, but does not answer", "close the assistant's side panel and open it again"},
    {"a busy pipe", judgePipe({PipeState::busy}), Health::ok, "a host serves a client on it"},
    {"no word on the pipe", judgePipe({PipeState::unknown}), Health::note,
     "no host answers, and the system does not report whether its name is free"},
};

TEST(JudgePlaces, SaysHowEachIsAndWhatToDo) {
  for (const auto& [name, finding, health, text, remedy] : findingCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(finding.health, health);
    EXPECT_EQ(finding.text, text);
    EXPECT_EQ(finding.remedy, remedy);
  }
}

TEST(LookAtFolder, MakesNothing) {
  const TestFolder folder;
  const EnvironmentVariable appData("APPDATA", toUtf8(folder.path().wstring()));
  EXPECT_EQ(lookAtFolder().folder, toUtf8(hostDataFolderPath()));
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

}  // namespace
}  // namespace media::win::chrome_inspect
