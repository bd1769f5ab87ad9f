// How the doctor sees and judges what the browsers find of the host.
#include "doctor/browser_findings.h"

#include "platform/files.h"
#include "setup/host_keys.h"
#include "setup/host_manifest.h"
#include "support/findings.h"
#include "support/test_folder.h"
#include "support/test_registry.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

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
  states[1].installed = states[3].installed = false;
  for (BrowserState& state : states) state.programExists = state.programIsThis = false;
  const Findings findings = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(findings), 2);  // the manifests that Chrome and Edge find
  EXPECT_EQ(find(findings, "browser.brave.registration").text,
            "registered, by the key that Chrome reads");
  EXPECT_EQ(find(findings, "browser.edge.registration").text, "registered: C:\\m.json");
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
  ASSERT_TRUE(storeInRegistry(RegistryRoot::user, policyKey + L"\\NativeMessagingBlocklist", L"0",
                              registryNumber, std::string(4, '\0')));  // passed over
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
