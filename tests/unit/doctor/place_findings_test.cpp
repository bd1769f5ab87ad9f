#include "doctor/place_findings.h"

#include "common/paths.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

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

const std::tuple<const char*, Finding, Health, const char*> findingCases[] = {
    {"the first port", judgeToolServer({{}, 39270, true}), Health::ok, "can listen on port 39270"},
    {"the third port", judgeToolServer({{39270, 39271}, 39272, true}), Health::ok,
     "can listen on port 39272; taken, by other hosts perhaps: 39270, 39271"},
    {"no port", judgeToolServer({{39270}, 0, true}), Health::problem,
     "no port from 39270 to 39279 is free: a host that starts now has no browser tools and takes "
     "no files"},
    {"no random bytes", judgeToolServer({{}, 39270, false}), Health::problem,
     "the system returns no random bytes, so there is no session token"},
    {"a folder", judgeFolder(wellFolder()), Health::ok, "C:\\work"},
    {"no folder", judgeFolder({}), Health::problem,
     "the system names no folder for application data"},
    {"a folder to be made", judgeFolder(with(wellFolder(), [](auto& s) { s.exists = false; })),
     Health::ok, "C:\\work, made when it is needed"},
    {"a folder that is locked",
     judgeFolder(with(wellFolder(), [](auto& s) { s.mayWrite = false; })), Health::problem,
     "C:\\work cannot be written to"},
    {"a folder elsewhere", judgeFolder(with(wellFolder(), [](auto& s) { s.onDrive = false; })),
     Health::note,
     "C:\\work is no folder of this machine: pasted files cannot be shown in the panel"},
    {"almost full", judgeDrops(with(wellFolder(), [](auto& s) { s.files = 300, s.recent = 199; })),
     Health::ok, "300 files, 199 of the last day (at most 200)"},
    {"full", judgeDrops(with(wellFolder(), [](auto& s) { s.files = s.recent = 200; })),
     Health::problem, "200 files of the last day, so no more are taken"},
    {"a link", judgeDrops(with(wellFolder(), [](auto& s) { s.dropsIsLink = true; })),
     Health::problem, "C:\\work\\chat-paste is a link, so files are refused"},
    {"unreadable", judgeDrops(with(wellFolder(), [](auto& s) { s.dropsReadable = false; })),
     Health::problem, "C:\\work\\chat-paste cannot be read, so files are refused"},
    {"no application", judgeApplication({}), Health::note,
     "does not run; commands that need its window fail"},
    {"an application", judgeApplication({8123, true}), Health::ok,
     "runs and takes commands on port 8123"},
    {"a silent application", judgeApplication({8123, false}), Health::problem,
     "announces itself on port 8123, but does not answer there"},
    {"no pipe", judgePipe(PipeState::absent), Health::ok,
     "its name is free, the next host that starts serves it"},
    {"a pipe", judgePipe(PipeState::listening), Health::ok,
     "a host serves it and waits for a client"},
    {"a busy pipe", judgePipe(PipeState::busy), Health::ok, "a host serves a client on it"},
    {"no word on the pipe", judgePipe(PipeState::unknown), Health::note,
     "the system does not report whether its name is free"},
};

TEST(JudgePlaces, SaysHowEachIsAndWhatToDo) {
  for (const auto& [name, finding, health, text] : findingCases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(finding.health, health);
    EXPECT_EQ(finding.text, text);
    if (health == Health::problem) {
      EXPECT_NE(finding.remedy, "");
    }
    if (health == Health::ok) {
      EXPECT_EQ(finding.remedy, "");
    }
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
