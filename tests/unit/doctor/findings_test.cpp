// How the doctor judges what it has seen of the agent, the browsers and the other places.
#include "common/paths.h"
#include "common/whole_file.h"
#include "doctor/agent_findings.h"
#include "doctor/browser_findings.h"
#include "doctor/place_findings.h"
#include "platform/files.h"
#include "setup/host_keys.h"
#include "setup/host_manifest.h"
#include "support/test_folder.h"
#include "support/test_registry.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

// The finding of that name, which there is.
const Finding& find(const Findings& findings, const std::string& id) {
  static const Finding none;
  const auto found = std::ranges::find(findings, id, &Finding::id);
  EXPECT_NE(found, findings.end()) << id;
  return found == findings.end() ? none : *found;
}

std::ptrdiff_t problemsIn(const Findings& findings) {
  return std::ranges::count(findings, Health::problem, &Finding::health);
}

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

using Texts = std::vector<std::string>;

BrowserState wellState() {
  BrowserState state;
  state.installed = true;
  state.key = "HKCU\\Software\\Google";
  state.manifest = "C:\\m.json";
  state.program = "C:\\x.exe";
  state.programExists = state.programIsThis = true;
  return state;
}

TEST(JudgeBrowsers, IsContentWithOneThatIsSetUp) {
  BrowserStates states;
  states[0] = wellState();
  states[1].installed = true;
  const Findings findings = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(findings), 0);
  for (const auto& [what, text] : {std::pair("registration", "registered: C:\\m.json"),
                                   std::pair("manifest", "valid, starts this program"),
                                   std::pair("policy", "no policy forbids the host")}) {
    const Finding& finding = find(findings, std::string("browser.chrome.") + what);
    EXPECT_EQ(finding.health, Health::ok) << what;
    EXPECT_EQ(finding.text, text);
    EXPECT_EQ(finding.remedy, "") << what;
  }
  const Finding& edge = find(findings, "browser.edge.registration");
  EXPECT_EQ(edge.health, Health::note);
  EXPECT_EQ(edge.text, "installed, but not registered");
  EXPECT_EQ(edge.remedy, "run: morva-chrome-host --register --browser edge");
  EXPECT_EQ(std::ranges::count(findings, "browser.edge.manifest", &Finding::id), 0);
}

TEST(JudgeBrowsers, MissesARegistrationOrABrowser) {
  BrowserStates states;
  const Findings none = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(none), 1);
  EXPECT_EQ(find(none, "browsers").text, "no browser was found, and none is registered");
  EXPECT_EQ(find(none, "browsers").remedy,
            "install one of chrome, edge, brave, vivaldi, chromium and run: morva-chrome-host "
            "--register");
  EXPECT_EQ(find(none, "browser.edge.registration").text, "not installed, not registered");
  EXPECT_EQ(find(none, "browser.edge.registration").health, Health::note);
  states[1].installed = true;
  const Findings findings = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(findings), 1);
  EXPECT_EQ(find(findings, "browser.edge.registration").health, Health::problem);
}

constexpr const char* registerAgain = "run: morva-chrome-host --register --browser chrome";

const std::tuple<const char*, std::function<void(BrowserState&)>, const char*, const char*,
                 std::string>
    faultCases[] = {
        {"a manifest that is no good",
         [](BrowserState& s) { s.manifestFault = "it is no JSON object"; },
         "browser.chrome.manifest", "the browser does not take it: it is no JSON object",
         registerAgain},
        {"a program that is gone",
         [](BrowserState& s) { s.programExists = s.programIsThis = false; },
         "browser.chrome.manifest", "it names a program that is not there: C:\\x.exe",
         registerAgain},
        {"a path that is too long", [](BrowserState& s) { s.programPathTooLong = true; },
         "browser.chrome.manifest",
         "Windows starts no program at a path of 260 characters or more: C:\\x.exe",
         "move the program to a shorter folder and register it there"},
        {"another program", [](BrowserState& s) { s.programIsThis = false; },
         "browser.chrome.manifest", "it starts another program: C:\\x.exe",
         registerAgain + ", or ask that program's --doctor"s},
        {"forbidden", [](BrowserState& s) { s.hostForbidden = true; }, "browser.chrome.policy",
         "an administrator's policy forbids this host (NativeMessagingBlocklist)",
         "ask the administrator to put com.quenlark.morva.chrome on NativeMessagingAllowlist"},
        {"forbidden for users", [](BrowserState& s) { s.userHostsForbidden = true; },
         "browser.chrome.policy",
         "an administrator's policy forbids hosts that are registered for one user "
         "(NativeMessagingUserLevelHosts)",
         "ask the administrator to allow them, or to run: morva-chrome-host --register "
         "--all-users"},
};

TEST(JudgeBrowsers, NamesEachFaultAndARemedy) {
  for (const auto& [name, change, id, text, remedy] : faultCases) {
    SCOPED_TRACE(name);
    BrowserStates states;
    states[0] = wellState();
    change(states[0]);
    const Findings findings = judgeBrowsers(states);
    EXPECT_EQ(problemsIn(findings), 1);
    const Finding& finding = find(findings, id);
    EXPECT_EQ(finding.health, Health::problem);
    EXPECT_EQ(finding.text, text);
    EXPECT_EQ(finding.remedy, remedy);
  }
}

TEST(JudgeBrowsers, JudgesAKeyOfSeveralBrowsersOnce) {
  BrowserStates states;
  states.fill(wellState());
  states[1].key = "HKCU\\Software\\Microsoft";
  states[3].installed = false;
  for (BrowserState& state : states) state.programExists = state.programIsThis = false;
  const Findings findings = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(findings), 2);  // the manifests that Chrome and Edge find
  EXPECT_EQ(find(findings, "browser.brave.registration").text,
            "registered, by the key that Chrome reads");
  EXPECT_EQ(find(findings, "browser.vivaldi.registration").text, "not installed");
  EXPECT_EQ(std::ranges::count(findings, "browser.brave.policy", &Finding::id), 1);
  EXPECT_EQ(std::ranges::count(findings, "browser.vivaldi.policy", &Finding::id), 0);
}

TEST(JudgeBrowsers, NamesTheCommandForAllUsersWhereAPolicyAsksForIt) {
  BrowserStates states;
  states[0] = wellState();
  states[0].userHostsForbidden = true;
  states[0].programExists = states[0].programIsThis = false;
  EXPECT_EQ(find(judgeBrowsers(states), "browser.chrome.manifest").remedy,
            "run: morva-chrome-host --register --browser chrome --all-users");
}

TEST(JudgeBrowsers, LetsAPolicyAgainstUsersHostsPassForAllUsers) {
  BrowserStates states;
  states[0] = wellState();
  states[0].forAllUsers = states[0].userHostsForbidden = true;
  EXPECT_EQ(problemsIn(judgeBrowsers(states)), 0);
  EXPECT_EQ(find(judgeBrowsers(states), "browser.chrome.registration").text,
            "registered for all users: C:\\m.json");
}

TEST(IsHostForbidden, GoesByTheAllowListFirst) {
  const std::string name = "com.quenlark.morva.chrome";
  EXPECT_FALSE(isHostForbidden({}, {}));
  EXPECT_FALSE(isHostForbidden({"com.other"}, {}));
  for (const Texts& block : {Texts{"*"}, Texts{name}, Texts{"com.other", name}}) {
    EXPECT_TRUE(isHostForbidden(block, {}));
    EXPECT_TRUE(isHostForbidden(block, {"com.other"}));
    EXPECT_TRUE(isHostForbidden(block, {"*"}));
    EXPECT_FALSE(isHostForbidden(block, {name}));
  }
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

// Edge as the registry shows it, which has nothing else of it.
class LookAtBrowsers : public testing::Test {
 protected:
  LookAtBrowsers() { clear(); }
  ~LookAtBrowsers() override { clear(); }

  static void store(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                    const std::wstring& text) {
    std::uint32_t systemError = 0;
    ASSERT_TRUE(writeRegistryString(root, key, value, text, systemError)) << systemError;
  }
  static void allowUserHosts(bool allowed) {
    ASSERT_TRUE(storeInRegistry(RegistryRoot::user, policyKey, L"NativeMessagingUserLevelHosts",
                                registryNumber, std::string(allowed ? "\1\0\0\0" : "\0\0\0\0", 4)));
  }
  static BrowserState look() { return lookAtBrowsers(L"C:\\host.exe").at(1); }

  static inline const Browser& theBrowser = *findBrowser("edge");
  static inline const std::wstring policyKey = policyKeyOf(theBrowser);
  static inline const std::wstring clientKey =
      L"Software\\Clients\\StartMenuInternet\\Microsoft Edge";

 private:
  const RegistryTurn turn_;

  static void clear() {
    for (const RegistryRoot root : {RegistryRoot::user, RegistryRoot::machine}) {
      for (const std::wstring& key :
           {policyKey, clientKey, std::wstring(L"Software\\Microsoft\\Edge")}) {
        deleteRegistryTree(root, key);
      }
    }
  }
};

TEST_F(LookAtBrowsers, SeesWhatTheBrowserWouldFind) {
  BrowserState edge = look();
  EXPECT_FALSE(edge.installed || edge.userHostsForbidden || edge.hostForbidden);
  EXPECT_EQ(edge.key + edge.version, "");
  const std::wstring key = writtenKey(theBrowser, RegistryRoot::user).key;
  store(RegistryRoot::user, clientKey, L"", L"Edge");
  store(RegistryRoot::user, key, L"", L"relative.json");
  store(RegistryRoot::machine, key, L"", L"C:\\none.json");
  store(RegistryRoot::user, policyKey + L"\\NativeMessagingBlocklist", L"1", L"*");
  for (const bool allowed : {true, false}) {
    allowUserHosts(allowed);
    edge = look();
    EXPECT_TRUE(edge.installed && edge.hostForbidden);
    EXPECT_EQ(edge.userHostsForbidden, !allowed);
    EXPECT_EQ(edge.forAllUsers, !allowed);
    EXPECT_EQ(edge.manifest, allowed ? "relative.json" : "C:\\none.json");
    EXPECT_NE(edge.manifestFault, "");
  }
  store(RegistryRoot::machine, policyKey + L"\\NativeMessagingBlocklist", L"1", L"other");
  EXPECT_FALSE(look().hostForbidden);  // the machine's list goes before the user's
}

TEST_F(LookAtBrowsers, ReadsTheManifestThatTheKeyNames) {
  const TestFolder folder;
  const std::wstring program = (folder.path() / "host.exe").wstring();
  const std::wstring manifest = (folder.path() / "m.json").wstring();
  const auto named = [&](const std::string& path) {
    json changed = json::parse(manifestText(program, {}));
    changed["path"] = path;
    EXPECT_TRUE(writeWholeFile(manifest, changed.dump()));
    return lookAtBrowsers(program).at(1);
  };
  store(RegistryRoot::user, writtenKey(theBrowser, RegistryRoot::user).key, L"", manifest);
  EXPECT_EQ(lookAtBrowsers(program).at(1).manifestFault, "it cannot be read");
  for (const std::string& path : {toUtf8(program), "host.exe"s}) {  // or relative to the manifest
    std::error_code ignored;
    fs::remove(program, ignored);
    BrowserState edge = named(path);
    EXPECT_EQ(edge.manifestFault, "");
    EXPECT_EQ(edge.program, toUtf8(program));
    EXPECT_TRUE(edge.programIsThis);
    EXPECT_FALSE(edge.programExists || edge.programPathTooLong);
    EXPECT_TRUE(writeWholeFile(program, "x"));
    edge = named(path);
    EXPECT_TRUE(edge.programExists);
  }
  EXPECT_FALSE(named("other.exe").programIsThis);
  const std::string longest(259 - folder.path().wstring().size() - 1, 'x');
  EXPECT_FALSE(named(longest).programPathTooLong);
  EXPECT_TRUE(named(longest + "x").programPathTooLong);
  EXPECT_EQ(named("").manifestFault, "it names no program");
}

}  // namespace
}  // namespace media::win::chrome_inspect
