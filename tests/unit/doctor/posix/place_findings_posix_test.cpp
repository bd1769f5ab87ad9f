// What the doctor sees of the host's folder and of the application, where a test chooses the
// folder.
#include "common/paths.h"
#include "doctor/place_findings.h"
#include "support/loopback_socket.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

class LookAtPlaces : public testing::Test {
 protected:
  const TestFolder appData_;
  const EnvironmentVariable variable_{"APPDATA", appData_.path().string()};
};

TEST_F(LookAtPlaces, CountsPastedFiles) {
  const fs::path work(hostDataFolderPath());
  const fs::path drops = work / "chat-paste";
  fs::create_directories(work);
  FolderState state = lookAtFolder();
  EXPECT_TRUE(state.exists && state.mayWrite && state.onDrive && state.dropsReadable);
  fs::create_directories(drops / "a folder");
  for (const char* name : {"new", "old"}) std::ofstream(drops / name) << name;
  fs::last_write_time(drops / "old", fs::file_time_type::clock::now() - std::chrono::hours(25));
  state = lookAtFolder();
  EXPECT_EQ(state.drops, drops.string());
  EXPECT_TRUE(state.dropsReadable);
  EXPECT_FALSE(state.dropsIsLink);
  EXPECT_EQ(state.files, 2U);
  EXPECT_EQ(state.recent, 1U);
  fs::rename(drops, work / "elsewhere");
  fs::create_directory_symlink(work / "elsewhere", drops);
  state = lookAtFolder();
  EXPECT_TRUE(state.dropsIsLink);
  EXPECT_EQ(state.files, 0U);
}

TEST_F(LookAtPlaces, AsksTheApplicationThatAnnouncesItself) {
  EXPECT_EQ(lookAtApplication().port, 0U);
  const fs::path folder = appData_.path() / "Quenlark" / "morva-viewer" / "instances" / "run-ipc";
  fs::create_directories(folder);
  std::uint16_t port = 0;
  OwnedSocket listener = listenOnLoopback(port, 1);
  std::ofstream(folder / "a.json") << json{{"kind", "ui"},
                                           {"transport", "tcp"},
                                           {"pid", ownProcessId()},
                                           {"endpoint", std::to_string(port)},
                                           {"token", "ab01"}};
  for (const bool listens : {true, false}) {
    if (!listens) listener.reset();
    const ApplicationState state = lookAtApplication();
    EXPECT_EQ(state.port, port);
    EXPECT_EQ(state.answers, listens);
  }
}

TEST_F(LookAtPlaces, LeavesOutThePortsThatAreTaken) {
  const ToolServerState before = lookAtToolServer();
  EXPECT_TRUE(before.hasRandom);
  OwnedSocket listener;
  ASSERT_TRUE(startSockets() && openSocket(listener) && bindLoopback(listener, before.freePort) &&
              listenOn(listener, 1));
  const ToolServerState after = lookAtToolServer();
  EXPECT_GT(after.freePort, before.freePort);
  EXPECT_EQ(after.taken.size(), before.taken.size() + 1);
}

}  // namespace
}  // namespace media::win::chrome_inspect
