#include "doctor/agent_findings.h"

#include "support/testing.h"

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

const Finding& find(const Findings& findings, const std::string& id) {
  const auto found = std::ranges::find(findings, id, &Finding::id);
  EXPECT_NE(found, findings.end()) << id;
  static const Finding none;
  return found == findings.end() ? none : *found;
}

const std::tuple<const char*, bool, Answer, Answer, Health, const char*> wholeCases[] = {
    {"can be started", true, Answer::none, Answer::none, Health::ok,
     "none runs, the host starts one when it needs it"},
    {"runs", true, Answer::ready, Answer::none, Health::ok, "one is ready, the host uses it"},
    {"runs, but could not be started", false, Answer::ready, Answer::none, Health::note,
     "one is ready, the host uses it; should it end, the host could start none: its program was "
     "not found"},
    {"neither", false, Answer::none, Answer::none, Health::problem,
     "none runs, and the program that starts one was not found"},
    {"a foreign program", true, Answer::foreign, Answer::none, Health::ok,
     "none runs, the host starts one when it needs it"},
    {"no port is left", true, Answer::notReady, Answer::foreign, Health::problem,
     "none is ready, and other programs have all of its ports"},
};

TEST(JudgeAgent, JudgesTheWhole) {
  for (const auto& [name, hasProgram, first, rest, health, text] : wholeCases) {
    SCOPED_TRACE(name);
    std::vector<CliLook> looks = noProgram();
    if (hasProgram) looks[3] = {"cli SearchPath", CliOutcome::found, L"C:\\x.exe"};
    const Findings findings = judgeAgent(looks, ports(first, rest));
    const Finding& whole = find(findings, "agent");
    EXPECT_EQ(whole.health, health);
    EXPECT_EQ(whole.text, text);
    EXPECT_EQ(whole.remedy.empty(), health == Health::ok);
    // Whatever is wrong with one place or port is no problem by itself.
    EXPECT_EQ(std::ranges::count(findings, Health::problem, &Finding::health),
              health == Health::problem ? 1 : 0);
  }
}

TEST(JudgeAgent, SaysWhyAPlaceWasPassedOver) {
  std::vector<CliLook> looks = noProgram();
  looks[0] = {"cli options", CliOutcome::insideWindowsApps, L"C:\\WindowsApps\\a"};
  const Findings findings = judgeAgent(looks, ports(Answer::none));
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

}  // namespace
}  // namespace media::win::chrome_inspect
