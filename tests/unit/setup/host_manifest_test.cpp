#include "setup/host_manifest.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/test_folder.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

const std::string ownOrigin = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/";
const std::string devId(32, 'b');

TEST(ManifestText, IsWhatABrowserWants) {
  const std::string wanted = R"({
  "name": "com.quenlark.morva.chrome",
  "description": "morva: the desktop assistant's side of the browser panel",
  "path": "C:\\PLACE\\morva-chrome-host.exe",
  "type": "stdio",
  "allowed_origins": [
    "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"
  ]
}
)";
  EXPECT_EQ(manifestText(L"C:\\PLACE\\morva-chrome-host.exe", {}), wanted);
}

TEST(ManifestText, NamesEachExtensionOnce) {
  const std::vector<std::string> ids = {devId, "kdhmgaeofpbjilnckdhmgaeofpbjilnc", devId};
  const json manifest = json::parse(manifestText(L"C:\\x.exe", ids));
  EXPECT_EQ(manifest["allowed_origins"], json({ownOrigin, "chrome-extension://" + devId + "/"}));
}

TEST(ManifestText, IsTakenByReadManifest) {
  const std::wstring path = L"C:\\gr\u00fc\u00df \u6f22\\x.exe";
  std::string program;
  std::string error;
  EXPECT_TRUE(readManifest(manifestText(path, {devId}), program, error)) << error;
  EXPECT_EQ(program, toUtf8(path));
}

struct FaultCase {
  const char* name;
  json change;  // merged into a good manifest; a null takes a member away
  const char* error;
};

const FaultCase faultCases[] = {
    {"another name", {{"name", "com.example"}}, "its name is not \"com.quenlark.morva.chrome\""},
    {"no name", {{"name", nullptr}}, "its name is not \"com.quenlark.morva.chrome\""},
    {"a name of another type", {{"name", 5}}, "its name is not \"com.quenlark.morva.chrome\""},
    {"no description", {{"description", ""}}, "it has no description"},
    {"another type", {{"type", "pipe"}}, "its type is not \"stdio\""},
    {"no program", {{"path", nullptr}}, "it names no program"},
    {"no origins", {{"allowed_origins", nullptr}}, "it has no list \"allowed_origins\""},
    {"origins that are no list",
     {{"allowed_origins", ownOrigin}},
     "it has no list \"allowed_origins\""},
    {"nobody allowed",
     {{"allowed_origins", json::array()}},
     "it does not allow chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"},
    {"others allowed",
     {{"allowed_origins", json::array({"chrome-extension://bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb/"})}},
     "it does not allow chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"},
    {"an origin without its slash",
     {{"allowed_origins", json::array({"chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc"})}},
     "an allowed origin is none: \"chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc\""},
    {"a wildcard",
     {{"allowed_origins", json::array({ownOrigin, "chrome-extension://*/"})}},
     "an allowed origin is none: \"chrome-extension://*/\""},
    {"an origin of another type",
     {{"allowed_origins", json::array({ownOrigin, 5})}},
     "an allowed origin is none: 5"},
};

TEST(ReadManifest, SaysWhatABrowserWouldRefuse) {
  for (const FaultCase& c : faultCases) {
    SCOPED_TRACE(c.name);
    json manifest = json::parse(manifestText(L"C:\\x.exe", {}));
    manifest.merge_patch(c.change);
    std::string program = "before";
    std::string error;
    EXPECT_FALSE(readManifest(manifest.dump(), program, error));
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(program, "before");
  }
}

TEST(ReadManifest, WantsAJsonObject) {
  for (const char* text : {"", "{", "[]", "null", "{} x", "\xFF"}) {
    std::string program;
    std::string error;
    EXPECT_FALSE(readManifest(text, program, error)) << text;
    EXPECT_EQ(error, "it is no JSON object") << text;
  }
}

TEST(ManifestPathFor, IsBesideTheProgram) {
  const TestFolder folder;
  const std::filesystem::path program = folder.path() / "morva-chrome-host.exe";
  EXPECT_EQ(std::filesystem::path(manifestPathFor(program.wstring())),
            folder.path() / "com.quenlark.morva.chrome.json");
}

}  // namespace
}  // namespace media::win::chrome_inspect
