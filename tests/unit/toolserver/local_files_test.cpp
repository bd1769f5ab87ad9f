#include "toolserver/local_files.h"

#include <sstream>

#include "common/paths.h"
#include "platform/files.h"
#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

TEST(ContentTypeFor, GoesByTheLastExtension) {
  const std::pair<const char*, const char*> images[] = {
      {"a.png", "png"},       {"C:\\x.y\\a.Png", "png"}, {".png", "png"},  {"a.jpg", "jpeg"},
      {"photo.JPEG", "jpeg"}, {"a.webp", "webp"},        {"a.gif", "gif"}, {"a.bmp", "bmp"},
  };
  for (const auto& [path, type] : images) {
    EXPECT_EQ(contentTypeFor(path), "image/" + std::string(type)) << path;
  }
  for (const char* path : {"notes.txt", "a", "", "a.", "a.png/b", "a.png\\b", "a.pngx", "png"}) {
    EXPECT_EQ(contentTypeFor(path), "application/octet-stream") << path;
  }
}

TEST(IsInsideFolder, NeedsASeparatorBehindTheFolder) {
  EXPECT_TRUE(isInsideFolder(L"/a/b/c", L"/a/b"));
  EXPECT_TRUE(isInsideFolder(L"C:\\a\\b", L"C:\\a"));
  for (const wchar_t* path : {L"/a/b", L"/a/bc", L"/a", L"/x/b/c", L""}) {
    EXPECT_FALSE(isInsideFolder(path, L"/a/b"));
    EXPECT_FALSE(isInsideFolder(path, L""));
  }
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

// Windows, where a path begins with a drive and the file system knows no letter case.
bool isDriveLetterUsed() { return pathSeparator == L'\\'; }

TEST_F(Loaded, FilesInsideAreRead) {
  EXPECT_EQ(load(put("a.png", "one\0two"s)), "image/png:one\0two"s);
}

// "{0}" is a file inside, "{1}" the same without its drive, "{2}" its folder.
constexpr const char* oddForms = R"(
  {0}:s {0}/x {2} a.png //?/{0} //server/share/a.png \\server\share\a.png /\server/share/a.png
  file://{0} {0}::$DATA {0}:secret:$DATA {1}:secret a.png:secret C:a.png:secret {0}/ {0}\x {2}/
  {2}/CON {2}/NUL {2}/COM1 {2}/LPT1 {2}/AUX {2}/PRN {2}/NUL.png CON NUL COM1 CONIN$ NUL: CON.png
  C:\CON C:\x\NUL C:\x\CON.png \\?\{0} \\.\{0} \??\{0} \\.\CON \\.\pipe\x \\.\C:\a.png
  \\.\PhysicalDrive0 \\?\UNC\server\share\a.png \\?\GLOBALROOT\Device\Null \Device\Null
  //./pipe/x //./C:/a.png //127.0.0.1/c$/a.png \/server/share/a.png /dev/null /dev/tty
  /proc/self/environ /proc/self/exe /etc/passwd \etc\passwd Z:\etc\passwd ~/a.png %APPDATA%\a.png
  . .. / \ C: C:\ 1:\a.png
)";

TEST_F(Loaded, EverythingElseIsRefusedWithOneText) {
  const std::string inside = put("a.png", "x");
  const std::string start = toUtf8(folder().wstring());
  const TestFolder neighbour(fs::path(hostDataFolder()).parent_path());
  const std::string outside = toUtf8((neighbour.path() / "outside.png").wstring());
  const std::string toOutside = "/../../" + neighbour.path().filename().string() + "/outside.png";
  std::ofstream(filePath(outside)) << "x";
  ASSERT_TRUE(fs::exists(folder() / toOutside.substr(1)));
  std::vector<std::string> paths = {"",
                                    "\0"s,
                                    inside + "\0"s,
                                    "\xFF",
                                    std::string(40'000, 'a'),
                                    inside + std::string(300, 'x'),
                                    outside,
                                    start + toOutside,
                                    put("empty.png", "")};
  const std::pair<std::string, std::string> meanings[] = {
      {"{0}", inside}, {"{1}", inside.substr(isDriveLetterUsed() ? 2 : 0)}, {"{2}", start}};
  std::istringstream forms(oddForms);
  for (std::string path; forms >> path; paths.push_back(path)) {
    for (const auto& [mark, meaning] : meanings) {
      const std::size_t at = path.find(mark);
      if (at != std::string::npos) path.replace(at, mark.size(), meaning);
    }
  }
  for (const std::string& path : paths) EXPECT_EQ(load(path), refused) << path;
}

TEST_F(Loaded, EverySpellingOfAFileIsThatFile) {
  const std::string start = toUtf8(folder().wstring());
  const std::string end = "/\xC3\x84/Picture.png";
  fs::create_directory(filePath(start + "/\xC3\x84"));
  std::string file = start + end;
  std::ranges::replace(file, '/', static_cast<char>(pathSeparator));
  std::ofstream(filePath(file)) << "x";
  std::string slashes = file;
  std::ranges::replace(slashes, '\\', '/');
  for (const std::string& path : {file, slashes, start + "/." + end, start + "//x/.." + end}) {
    EXPECT_EQ(load(path), "image/png:x") << path;
  }
  // Letter case, and what stands at the end of a name, count where the file system says so.
  const std::string sometimes = isDriveLetterUsed() ? "image/png:x" : refused;
  for (const std::string& path : {start + "/\xC3\xA4/Picture.png", start + "/\xC3\x84/PICTURE.PNG",
                                  file + ".", file + " ", file + "..."}) {
    EXPECT_EQ(load(path), sometimes) << path;
  }
}

TEST_F(Loaded, SixteenMebibytesAreTheMost) {
  const std::string path = put("a.gif", std::string(maxServedFileBytes, 'x'));
  EXPECT_EQ(load(path).size(), maxServedFileBytes + std::string("image/gif:").size());
  std::ofstream(filePath(path), std::ios::app) << "x";
  EXPECT_EQ(load(path), refused);
}

}  // namespace
}  // namespace media::win::chrome_inspect
