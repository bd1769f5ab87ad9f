#include "app_ipc/instance_discovery.h"

#include "support/test_folder.h"
#include "support/test_system.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::uint32_t deadProcess = 0x7FFFFFFC;

json announcement(std::uint32_t port = 8123, std::int64_t startedUnixMs = 1000) {
  return {{"kind", "ui"},          {"transport", "tcp"},
          {"pid", ownProcessId()}, {"endpoint", std::to_string(port)},
          {"token", "ab01"},       {"startedUnixMs", startedUnixMs}};
}

bool isTaken(const std::string& text) {
  AppInstance instance;
  std::uint32_t pid = 0;
  return readAnnouncement(text, instance, pid);
}

bool isTakenWith(const char* key, const json& value) {
  json file = announcement();
  file[key] = value;
  return isTaken(file.dump());
}

TEST(ReadAnnouncement, TakesOnlyWhatIsWellFormed) {
  for (const char* key : {"kind", "transport", "pid", "endpoint", "token", "startedUnixMs"}) {
    json file = announcement();
    file.erase(key);
    EXPECT_EQ(isTaken(file.dump()), key == std::string("startedUnixMs")) << key;
    EXPECT_EQ(isTakenWith(key, nullptr), key == std::string("startedUnixMs")) << key;
  }
  EXPECT_TRUE(isTakenWith("other", 5));
  EXPECT_TRUE(isTakenWith("pid", 4294967295U));
  for (const json& pid : {json(0), json(-5), json(4294967300), json(1e300), json("5")}) {
    EXPECT_FALSE(isTakenWith("pid", pid)) << pid;
  }
  for (const char* port : {"1", "65535"}) EXPECT_TRUE(isTakenWith("endpoint", port)) << port;
  for (const char* port : {"0", "65536", "99999999999", "99999999999999999999999999", "8123abc",
                           "+1", "-1", " 8123", "8123 ", "0x50", ""}) {
    EXPECT_FALSE(isTakenWith("endpoint", port)) << port;
  }
  for (const auto& [key, value] : {std::pair("kind", "cli"), std::pair("kind", "UI"),
                                   std::pair("transport", "pipe"), std::pair("token", "")}) {
    EXPECT_FALSE(isTakenWith(key, value)) << key << value;
  }
}

TEST(ReadAnnouncement, ReturnsWhatWasAnnounced) {
  AppInstance instance;
  std::uint32_t pid = 0;
  ASSERT_TRUE(readAnnouncement(announcement().dump(), instance, pid));
  EXPECT_EQ(instance.host, "127.0.0.1");
  EXPECT_EQ(instance.port, 8123U);
  EXPECT_EQ(instance.token, "ab01");
  EXPECT_EQ(instance.startedUnixMs, 1000);
  EXPECT_EQ(pid, ownProcessId());
}

class Discovery : public testing::Test {
 protected:
  fs::path folderOf(const char* application) {
    fs::path folder = appData_.path() / "Quenlark" / application / "instances" / "run-ipc";
    fs::create_directories(folder);
    return folder;
  }
  static void write(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }

  TestFolder appData_;
  EnvironmentVariable variable_{"APPDATA", appData_.path().string()};
};

TEST_F(Discovery, FindsNothingWhereNothingIs) {
  EXPECT_EQ(discoverAppInstance().port, 0U);
  (void)folderOf("morva-viewer");
  for (const char* const noApplication : {".", ".."}) {
    write(folderOf(noApplication) / "a.json", announcement().dump());
  }
  EXPECT_EQ(discoverAppInstance().port, 0U);
  const EnvironmentVariable none("APPDATA", "");
  EXPECT_EQ(discoverAppInstance().port, 0U);
}

TEST_F(Discovery, ChoosesTheNewestThatIsAliveInTheFirstFolder) {
  write(folderOf("morva-beta") / "a.json", announcement(6, 9000).dump());
  write(folderOf("another") / "a.json", announcement(7, 8000).dump());
  EXPECT_EQ(discoverAppInstance().port, 6U);
  const fs::path folder = folderOf("morva-viewer");
  write(folder / "a.json", announcement(1, 2000).dump());
  write(folder / "b.json", announcement(2, 1000).dump());
  json dead = announcement(3, 9000);
  dead["pid"] = deadProcess;
  write(folder / "c.json", dead.dump());
  EXPECT_EQ(discoverAppInstance().port, 1U);
  write(folder / "d.json", announcement(4, 3000).dump());
  EXPECT_EQ(discoverAppInstance().port, 4U);
}

TEST_F(Discovery, PassesOverOtherFiles) {
  const fs::path folder = folderOf("morva-viewer");
  std::string good = announcement(1, 9000).dump();
  for (const char* const name : {"a.txt", "a.JSON", "a.json5", "json", ".json", "a.json.bak"}) {
    write(folder / name, good);
  }
  fs::create_directories(folder / "folder.json");
  int number = 0;
  for (const std::string& bad :
       {std::string(), std::string("{"), std::string("null"), std::string("[]"), good.substr(1),
        good + "x", good + std::string(maxInstanceFileBytes, ' '), std::string(50'000, '['),
        std::string(3000, '\xFF'), std::string("\xFF\xFE{\0}\0", 6)}) {
    write(folder / ("bad" + std::to_string(++number) + ".json"), bad);
  }
  EXPECT_EQ(discoverAppInstance().port, 0U);
  good.resize(maxInstanceFileBytes, ' ');  // the largest
  write(folder / "{any} name.x.json", good);
  EXPECT_EQ(discoverAppInstance().port, 1U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
