#include "app_ipc/instance_discovery.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "support/own_process.h"
#include "support/test_folder.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr std::uint32_t deadProcess = 0x7FFFFFFC;

json announcement(std::uint32_t port = 8123, std::int64_t startedUnixMs = 1000) {
  return {{"kind", "ui"},          {"transport", "tcp"},
          {"pid", ownProcessId()}, {"endpoint", std::to_string(port)},
          {"token", "ab01"},       {"startedUnixMs", startedUnixMs}};
}

struct MemberCase {
  const char* key;
  json value;  // discarded: the member is left out
  bool ok;
};

const MemberCase memberCases[] = {
    {"other", 5, true},
    {"kind", "cli", false},
    {"kind", "UI", false},
    {"kind", nullptr, false},
    {"kind", json::array({"ui"}), false},
    {"kind", json(json::value_t::discarded), false},
    {"transport", "pipe", false},
    {"transport", json(json::value_t::discarded), false},
    {"pid", 0, false},
    {"pid", -5, false},
    {"pid", 4294967295U, true},
    {"pid", 4294967300, false},
    {"pid", 1e300, false},
    {"pid", "5", false},
    {"pid", json(json::value_t::discarded), false},
    {"endpoint", "0", false},
    {"endpoint", "1", true},
    {"endpoint", "65535", true},
    {"endpoint", "65536", false},
    {"endpoint", "99999999999", false},
    {"endpoint", "99999999999999999999999999", false},
    {"endpoint", "8123abc", false},
    {"endpoint", "+1", false},
    {"endpoint", "-1", false},
    {"endpoint", " 8123", false},
    {"endpoint", "8123 ", false},
    {"endpoint", "0x50", false},
    {"endpoint", "", false},
    {"endpoint", 8123, false},
    {"endpoint", json(json::value_t::discarded), false},
    {"token", "", false},
    {"token", 5, false},
    {"token", json(json::value_t::discarded), false},
    {"startedUnixMs", json(json::value_t::discarded), true},
    {"startedUnixMs", nullptr, true},
    {"startedUnixMs", "1", true},
};

TEST(ReadAnnouncement, TakesOnlyWhatIsWellFormed) {
  for (const MemberCase& c : memberCases) {
    json file = announcement();
    if (c.value.is_discarded()) {
      file.erase(c.key);
    } else {
      file[c.key] = c.value;
    }
    SCOPED_TRACE(file.dump());
    AppInstance instance;
    std::uint32_t pid = 0;
    EXPECT_EQ(readAnnouncement(file.dump(), instance, pid), c.ok);
  }
}

TEST(ReadAnnouncement, GivesWhatWasAnnounced) {
  AppInstance instance;
  std::uint32_t pid = 0;
  ASSERT_TRUE(readAnnouncement(announcement().dump(), instance, pid));
  EXPECT_EQ(instance.host, "127.0.0.1");
  EXPECT_EQ(instance.port, 8123U);
  EXPECT_EQ(instance.token, "ab01");
  EXPECT_EQ(instance.startedUnixMs, 1000);
  EXPECT_EQ(pid, ownProcessId());
}

TEST(ReadAnnouncement, RefusesWhatIsNoObject) {
  AppInstance instance;
  std::uint32_t pid = 0;
  for (const std::string& text :
       {std::string(), std::string("{"), std::string("[]"), std::string("null"),
        std::string("\xFF\xFE{\0}\0", 6), std::string(100'000, '[')}) {
    EXPECT_FALSE(readAnnouncement(text, instance, pid)) << text.substr(0, 20);
  }
}

class Discovery : public testing::Test {
 protected:
  fs::path folderOf(const char* application) {
    const fs::path folder = appData_.path() / "Quenlark" / application / "instances" / "run-ipc";
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
  fs::create_directories(appData_.path() / "Quenlark");
  EXPECT_EQ(discoverAppInstance().port, 0U);
  (void)folderOf("morva-viewer");
  EXPECT_EQ(discoverAppInstance().port, 0U);
  const EnvironmentVariable none("APPDATA", "");
  EXPECT_EQ(discoverAppInstance().port, 0U);
}

TEST_F(Discovery, ChoosesTheNewestThatIsAlive) {
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

TEST_F(Discovery, GoesByTheNamesEndOnly) {
  const fs::path folder = folderOf("morva-viewer");
  for (const char* const name : {"a.txt", "a.JSON", "a.json5", "json", "a.json.bak"}) {
    write(folder / name, announcement().dump());
  }
  fs::create_directories(folder / "folder.json");
  EXPECT_EQ(discoverAppInstance().port, 0U);
  write(folder / "{any} name.x.json", announcement().dump());
  EXPECT_EQ(discoverAppInstance().port, 8123U);
}

TEST_F(Discovery, PrefersTheFirstFolder) {
  write(folderOf("morva-beta") / "a.json", announcement(2, 9000).dump());
  write(folderOf("another") / "a.json", announcement(3, 8000).dump());
  EXPECT_EQ(discoverAppInstance().port, 2U);
  write(folderOf("morva-viewer") / "a.json", announcement(1, 1).dump());
  EXPECT_EQ(discoverAppInstance().port, 1U);
}

TEST_F(Discovery, PassesOverTwoHundredBadFiles) {
  const fs::path folder = folderOf("morva-viewer");
  const std::string good = announcement(1, 9000).dump();
  const std::string bad[] = {"",
                             "{",
                             good.substr(1),
                             good + "x",
                             good + std::string(maxInstanceFileBytes, ' '),
                             std::string(50'000, '['),
                             std::string(3000, '\xFF'),
                             R"({"kind":"ui","transport":"tcp","pid":{},"endpoint":[]})"};
  for (std::size_t number = 0; number < 200; ++number) {
    write(folder / ("bad" + std::to_string(number) + ".json"), bad[number % std::size(bad)]);
  }
  EXPECT_EQ(discoverAppInstance().port, 0U);
  write(folder / "good.json", announcement(5, 1).dump());
  EXPECT_EQ(discoverAppInstance().port, 5U);
}

TEST_F(Discovery, TakesAFileOfTheLargestSize) {
  std::string text = announcement().dump();
  text.resize(maxInstanceFileBytes, ' ');
  write(folderOf("morva-viewer") / "a.json", text);
  EXPECT_EQ(discoverAppInstance().port, 8123U);
}

}  // namespace
}  // namespace media::win::chrome_inspect
