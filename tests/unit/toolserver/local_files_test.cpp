#include "toolserver/local_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "common/paths.h"
#include "support/test_folder.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

TEST(ContentTypeFor, GoesByTheLastExtension) {
  const struct {
    const char* path;
    const char* type;
  } cases[] = {
      {"a.png", "image/png"},
      {"A.PNG", "image/png"},
      {"a.jpg", "image/jpeg"},
      {"photo.JPEG", "image/jpeg"},
      {"a.webp", "image/webp"},
      {"a.gif", "image/gif"},
      {"a.bmp", "image/bmp"},
      {".png", "image/png"},
      {"C:\\x.y\\a.Png", "image/png"},
      {"notes.txt", "application/octet-stream"},
      {"a", "application/octet-stream"},
      {"", "application/octet-stream"},
      {"a.", "application/octet-stream"},
      {"a.png/b", "application/octet-stream"},
      {"a.png\\b", "application/octet-stream"},
      {"a.pngx", "application/octet-stream"},
      {"a.png ", "application/octet-stream"},
      {"png", "application/octet-stream"},
  };
  for (const auto& c : cases) EXPECT_EQ(contentTypeFor(c.path), c.type) << c.path;
}

TEST(IsInsideFolder, NeedsASeparatorBehindTheFolder) {
  EXPECT_TRUE(isInsideFolder(L"/a/b/c", L"/a/b"));
  EXPECT_TRUE(isInsideFolder(L"C:\\a\\b", L"C:\\a"));
  EXPECT_FALSE(isInsideFolder(L"/a/b", L"/a/b"));
  EXPECT_FALSE(isInsideFolder(L"/a/bc", L"/a/b"));
  EXPECT_FALSE(isInsideFolder(L"/a", L"/a/b"));
  EXPECT_FALSE(isInsideFolder(L"/x/b/c", L"/a/b"));
  EXPECT_FALSE(isInsideFolder(L"", L""));
  EXPECT_FALSE(isInsideFolder(L"/a", L""));
}

class Loaded : public testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(hostDataFolder().empty()); }

  const fs::path& folder() const { return folder_.path(); }

  std::string put(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder() / name, std::ios::binary) << bytes;
    return toUtf8((folder() / name).wstring());
  }

  // The type and bytes, or the error.
  static std::string load(const std::string& path) {
    std::string body = "before";
    std::string type = "before";
    std::string error = "before";
    loadLocalFile(path, body, type, error);
    if (error.empty()) return type + ":" + body;
    EXPECT_EQ(body + type, "");
    return error;
  }

 private:
  const TestFolder base_;
  const EnvironmentVariable appData_{"APPDATA", base_.path().string()};
  const TestFolder folder_{fs::path(hostDataFolder())};
};

const std::string refused = "file is not available";

TEST_F(Loaded, FilesInsideAreGiven) {
  EXPECT_EQ(load(put("a.png", "one\0two"s)), "image/png:one\0two"s);
}

TEST_F(Loaded, EverythingElseIsRefusedWithOneText) {
  const std::string inside = put("a.png", "x");
  const TestFolder neighbour(fs::path(hostDataFolder()).parent_path());
  const std::string outside = toUtf8((neighbour.path() / "outside.png").wstring());
  const std::string toOutside = "/../../" + neighbour.path().filename().string() + "/outside.png";
  std::ofstream(fs::u8path(outside)) << "x";
  ASSERT_TRUE(fs::exists(folder() / toOutside.substr(1)));
  for (const std::string& path : {""s,
                                  "\0"s,
                                  inside + "\0"s,
                                  inside + ":s",
                                  inside + "::$DATA",
                                  "a.png"s,
                                  outside,
                                  inside + "/x",
                                  put("empty.png", ""),
                                  toUtf8(folder().wstring()),
                                  "\xFF"s,
                                  toUtf8(folder().wstring()) + toOutside,
                                  "\\\\?\\" + inside,
                                  "//?/" + inside,
                                  "\\\\server\\share\\a.png"s,
                                  "//server/share/a.png"s,
                                  "/\\server/share/a.png"s,
                                  "NUL"s,
                                  "//./pipe/x"s,
                                  "/dev/null"s}) {
    EXPECT_EQ(load(path), refused) << path;
  }
}

TEST_F(Loaded, SixteenMebibytesAreTheMost) {
  const std::string path = put("a.gif", std::string(maxServedFileBytes, 'x'));
  EXPECT_EQ(load(path).size(), maxServedFileBytes + std::string("image/gif:").size());
  std::ofstream(fs::u8path(path), std::ios::app) << "x";
  EXPECT_EQ(load(path), refused);
}

}  // namespace
}  // namespace media::win::chrome_inspect
