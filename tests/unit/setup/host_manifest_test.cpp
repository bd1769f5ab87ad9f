#include "setup/host_manifest.h"

#include "support/test_folder.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

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

TEST(ManifestText, NamesEachExtensionOnceAndIsTakenByABrowser) {
  const std::wstring path = L"C:\\gr\u00fc\u00df \u6f22\\x.exe";
  const std::string text = manifestText(path, {devId, "kdhmgaeofpbjilnckdhmgaeofpbjilnc", devId});
  EXPECT_EQ(json::parse(text)["allowed_origins"],
            json({ownOrigin, "chrome-extension://" + devId + "/"}));
  std::string program;
  std::string error;
  EXPECT_TRUE(readManifest(text, program, error)) << error;
  EXPECT_EQ(program, toUtf8(path));
}

// `change`: merged into a good manifest; a null takes a member away
const std::pair<const char*, const char*> faultCases[] = {
    {R"({"name":"com.example"})", R"(its name is not "com.quenlark.morva.chrome")"},
    {R"({"name":null})", R"(its name is not "com.quenlark.morva.chrome")"},
    {R"({"name":5})", R"(its name is not "com.quenlark.morva.chrome")"},
    {R"({"description":""})", "it has no description"},
    {R"({"type":"pipe"})", R"(its type is not "stdio")"},
    {R"({"path":null})", "it names no program"},
    {R"({"allowed_origins":null})", R"(it has no list "allowed_origins")"},
    {R"({"allowed_origins":"x"})", R"(it has no list "allowed_origins")"},
    {R"({"allowed_origins":[]})",
     "it does not allow chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"},
    {R"({"allowed_origins":["chrome-extension://bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb/"]})",
     "it does not allow chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc/"},
    {R"({"allowed_origins":["chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc"]})",
     R"(an allowed origin is none: "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc")"},
    {R"({"allowed_origins":["chrome-extension://*/"]})",
     R"(an allowed origin is none: "chrome-extension://*/")"},
    {R"({"allowed_origins":[5]})", "an allowed origin is none: 5"},
};

TEST(ReadManifest, ReportsWhatABrowserWouldRefuse) {
  std::string program = "before";
  std::string error;
  for (const auto& [change, wanted] : faultCases) {
    json manifest = json::parse(manifestText(L"C:\\x.exe", {}));
    manifest.merge_patch(json::parse(change));
    EXPECT_FALSE(readManifest(manifest.dump(), program, error)) << change;
    EXPECT_EQ(error, wanted) << change;
  }
  for (const char* text : {"", "{", "[]", "null", "{} x", "\xFF"}) {
    EXPECT_FALSE(readManifest(text, program, error)) << text;
    EXPECT_EQ(error, "it is no JSON object") << text;
  }
  EXPECT_EQ(program, "before");
}

TEST(ManifestPathFor, IsBesideTheProgram) {
  const TestFolder folder;
  const fs::path program = folder.path() / "morva-chrome-host.exe";
  EXPECT_EQ(fs::path(manifestPathFor(program.wstring())),
            folder.path() / "com.quenlark.morva.chrome.json");
}

}  // namespace
}  // namespace media::win::chrome_inspect
