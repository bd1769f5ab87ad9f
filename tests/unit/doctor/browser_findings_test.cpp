#include "doctor/browser_findings.h"

#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Texts = std::vector<std::string>;

BrowserState wellState() {
  BrowserState state;
  state.installed = true;
  state.manifest = "C:\\m.json";
  state.program = "C:\\x.exe";
  state.programExists = state.programIsThis = true;
  return state;
}

const Finding* find(const Findings& findings, const std::string& id) {
  const auto found = std::ranges::find(findings, id, &Finding::id);
  return found == findings.end() ? nullptr : &*found;
}

std::ptrdiff_t problemsIn(const Findings& findings) {
  return std::ranges::count(findings, Health::problem, &Finding::health);
}

TEST(JudgeBrowsers, IsContentWithOneThatIsSetUp) {
  BrowserStates states;
  states[0] = wellState();
  states[1].installed = true;
  const Findings findings = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(findings), 0);
  for (const char* what : {"registration", "manifest", "policy"}) {
    const Finding* finding = find(findings, std::string("browser.chrome.") + what);
    ASSERT_NE(finding, nullptr) << what;
    EXPECT_EQ(finding->health, Health::ok) << what;
    EXPECT_EQ(finding->remedy, "") << what;
  }
  const Finding* edge = find(findings, "browser.edge.registration");
  ASSERT_NE(edge, nullptr);
  EXPECT_EQ(edge->health, Health::note);
  EXPECT_EQ(edge->remedy, "run: morva-chrome-host --register --browser edge");
  EXPECT_EQ(find(findings, "browser.edge.manifest"), nullptr);
}

TEST(JudgeBrowsers, MissesARegistrationOrABrowser) {
  BrowserStates states;
  const Findings none = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(none), 1);
  ASSERT_NE(find(none, "browsers"), nullptr);
  EXPECT_NE(find(none, "browsers")->remedy.find("--register"), std::string::npos);
  states[1].installed = true;
  const Findings findings = judgeBrowsers(states);
  EXPECT_EQ(problemsIn(findings), 1);
  EXPECT_EQ(find(findings, "browser.edge.registration")->health, Health::problem);
}

const std::tuple<const char*, std::function<void(BrowserState&)>, const char*, const char*>
    faultCases[] = {
        {"a manifest that is no good",
         [](BrowserState& s) { s.manifestFault = "it is no JSON object"; },
         "browser.chrome.manifest", "the browser does not take it: it is no JSON object"},
        {"a program that is gone",
         [](BrowserState& s) { s.programExists = s.programIsThis = false; },
         "browser.chrome.manifest", "it names a program that is not there: C:\\x.exe"},
        {"another program", [](BrowserState& s) { s.programIsThis = false; },
         "browser.chrome.manifest", "it starts another program: C:\\x.exe"},
        {"forbidden", [](BrowserState& s) { s.hostForbidden = true; }, "browser.chrome.policy",
         "an administrator's policy forbids this host (NativeMessagingBlocklist)"},
        {"forbidden for users", [](BrowserState& s) { s.userHostsForbidden = true; },
         "browser.chrome.policy",
         "an administrator's policy forbids hosts that are registered for one user "
         "(NativeMessagingUserLevelHosts)"},
};

TEST(JudgeBrowsers, NamesEachFaultAndARemedy) {
  for (const auto& [name, change, id, text] : faultCases) {
    SCOPED_TRACE(name);
    BrowserStates states;
    states[0] = wellState();
    change(states[0]);
    const Findings findings = judgeBrowsers(states);
    EXPECT_EQ(problemsIn(findings), 1);
    const Finding* finding = find(findings, id);
    ASSERT_NE(finding, nullptr);
    EXPECT_EQ(finding->health, Health::problem);
    EXPECT_EQ(finding->text, text);
    EXPECT_NE(finding->remedy, "");
  }
}

TEST(JudgeBrowsers, LetsAPolicyAgainstUsersHostsPassForAllUsers) {
  BrowserStates states;
  states[0] = wellState();
  states[0].forAllUsers = states[0].userHostsForbidden = true;
  EXPECT_EQ(problemsIn(judgeBrowsers(states)), 0);
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

}  // namespace
}  // namespace media::win::chrome_inspect
