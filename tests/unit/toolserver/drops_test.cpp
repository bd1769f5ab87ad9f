#include "toolserver/drops.h"

#include "common/paths.h"
#include "support/test_folder.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

TEST(CleanDropName, KeepsWhatAFileMayBeCalled) {
  const std::string kana = "\xE3\x81\x82";
  const std::string a120(120, 'a');
  const std::string a119(119, 'a');
  const std::string a118(118, 'a');
  const std::pair<std::string, std::string> cases[] = {
      {"", "file"},
      {"shot.png", "shot.png"},
      {"../../evil.exe", "evil.exe"},
      {"C:x.txt", "Cx.txt"},
      {"..a", "..a"},
      {"a\\b/c", "c"},
      {"a/", "file"},
      {"\"*:<>?|", "file"},
      {"\x01\x1F\n\0x"s, "x"},
      {"\x7F\x80\xFF", "\x7F\x80\xFF"},
      {"report. . .", "report"},
      {" .", "file"},
      {"a. ?", "a"},
      {"CON", "CON"},
      {a120, a120},
      {a120 + "a", a120},
      {a119 + " b", a119},
      {a119 + ".png", a119},
      {a118 + "\xC3\xA9", a118 + "\xC3\xA9"},
      {repeat(41, kana), repeat(40, kana)},
      {"a" + repeat(40, kana), "a" + repeat(39, kana)},
  };
  for (const auto& [hint, kept] : cases) EXPECT_EQ(cleanDropName(hint), kept) << hint;
}

// The host's own folder, below a fresh one where the system lets a process choose it, with no drops
// before and after.
class Drops : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(hostDataFolder().empty());
    fs::remove_all(folder());
    fs::create_directories(hostDataFolder());
  }
  void TearDown() override { fs::remove_all(folder()); }

  static fs::path folder() { return fs::path(hostDataFolder()) / "chat-paste"; }

  static void fill(std::size_t count, std::chrono::hours age) {
    fs::create_directories(folder());
    for (std::size_t i = 0; i < count; ++i) {
      const fs::path file = folder() / std::to_string(i);
      std::ofstream(file) << "x";
      fs::last_write_time(file, fs::file_time_type::clock::now() - age);
    }
  }

  static std::size_t count() {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(folder()), fs::directory_iterator()));
  }

 private:
  const TestFolder base_;
  const EnvironmentVariable appData_{"APPDATA", base_.path().string()};
};

TEST_F(Drops, KeepsTheBytesUnderANewName) {
  const nlohmann::json first = saveDroppedFile("a.png", "one\r\n\0two"s);
  const nlohmann::json second = saveDroppedFile("a.png", "2");
  ASSERT_EQ(first.at("ok"), true);
  ASSERT_EQ(second.at("ok"), true);
  EXPECT_NE(first.at("path"), second.at("path"));
  std::ifstream file(filePath(first.at("path")), std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "one\r\n\0two"s);
}

TEST_F(Drops, RefusesEmptyBodiesAndNamesThatAreNoText) {
  EXPECT_EQ(saveDroppedFile("a", "").dump(), R"({"error":"empty file","ok":false})");
  for (const char* name : {"\xFF", "a\xC3", "\xED\xA0\x80", "a\xF5 b"}) {
    EXPECT_EQ(saveDroppedFile(name, "x").dump(),
              R"({"error":"could not name the file","ok":false})");
  }
}

TEST_F(Drops, CountsRecentFilesOnly) {
  fill(maxRecentDrops - 1, std::chrono::hours(1));
  EXPECT_EQ(saveDroppedFile("a", "x").at("ok"), true);
  EXPECT_EQ(saveDroppedFile("a", "x").at("error"), "drops folder is full");
  EXPECT_EQ(count(), maxRecentDrops);
  for (const std::chrono::hours age : {std::chrono::hours(25), -std::chrono::hours(25)}) {
    fs::remove_all(folder());
    fill(maxRecentDrops + 5, age);
    EXPECT_EQ(saveDroppedFile("a", "x").at("ok"), true);
    EXPECT_EQ(count(), 1U);
  }
}

TEST(IsRecentDrop, TakesADayInBothDirections) {
  constexpr std::int64_t dayMs = 86'400'000;
  for (const std::int64_t direction : {1, -1}) {
    EXPECT_TRUE(isRecentDrop(direction * dayMs));
    EXPECT_FALSE(isRecentDrop(direction * (dayMs + 1)));
  }
}

TEST_F(Drops, NeitherCountsNorDeletesFolders) {
  fill(maxRecentDrops - 1, std::chrono::hours(1));
  fs::create_directory(folder() / "new");
  fs::create_directory(folder() / "old");
  std::error_code error;  // not every system dates a folder so
  fs::last_write_time(folder() / "old", fs::file_time_type::clock::now() - std::chrono::hours(48),
                      error);
  EXPECT_EQ(saveDroppedFile("a", "x").at("ok"), true);
  EXPECT_EQ(count(), maxRecentDrops + 2);
}

TEST_F(Drops, RefusesAFileInItsPlace) {
  std::ofstream(folder()) << "x";
  EXPECT_EQ(saveDroppedFile("a", "x").at("error"), "could not create the drops folder");
}

}  // namespace
}  // namespace media::win::chrome_inspect
