// The manifest, and the browsers that are to find it.
#include "setup/host_manifest.h"

#include "setup/browsers.h"
#include "setup/host_keys.h"
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
  json manifest = json::parse(manifestText(L"C:\\x.exe", {}));
  manifest["allowed_origins"] = json::array({std::string(300, 'o')});
  EXPECT_FALSE(readManifest(manifest.dump(), program, error));
  EXPECT_EQ(error, "an allowed origin is none: \"" + std::string(199, 'o'));  // the rest is cut
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
  EXPECT_EQ(manifestPathFor(L"x.exe"), L"com.quenlark.morva.chrome.json");
}

TEST(Browsers, HaveTheKeysInWhichTheyLook) {
  using Vendors = std::vector<std::string>;
  const std::tuple<const char*, Vendors, const wchar_t*> cases[] = {
      {"chrome", {"Google\\Chrome"}, L"Software\\Policies\\Google\\Chrome"},
      {"edge",
       {"Microsoft\\Edge", "Chromium", "Google\\Chrome"},
       L"Software\\Policies\\Microsoft\\Edge"},
      {"brave", {"Google\\Chrome"}, L"Software\\Policies\\BraveSoftware\\Brave"},
      {"vivaldi", {"Google\\Chrome"}, L"Software\\Policies\\Vivaldi"},
      {"chromium", {"Chromium", "Google\\Chrome"}, L"Software\\Policies\\Chromium"},
  };
  EXPECT_EQ(std::size(cases), browsers.size());
  for (const auto& [name, vendors, policy] : cases) {
    SCOPED_TRACE(name);
    const Browser* browser = findBrowser(name);
    ASSERT_NE(browser, nullptr);
    EXPECT_EQ(toUtf8(policyKeyOf(*browser)), toUtf8(policy));
    Vendors user;
    Vendors machine;
    for (const char* top :
         {"HKCU\\Software\\", "HKLM\\Software\\WOW6432Node\\", "HKLM\\Software\\"}) {
      for (const std::string& vendor : vendors) {
        (top[2] == 'C' ? user : machine)
            .push_back(top + vendor + "\\NativeMessagingHosts\\com.quenlark.morva.chrome");
      }
    }
    for (const auto& [root, wanted] :
         {std::pair(RegistryRoot::user, user), std::pair(RegistryRoot::machine, machine)}) {
      Vendors read;
      for (const HostKey& key : keysReadBy(*browser, root)) read.push_back(shownKey(key));
      EXPECT_EQ(read, wanted);
      EXPECT_EQ(shownKey(writtenKey(*browser, root)), wanted.at(wanted.size() - vendors.size()));
    }
  }
}

TEST(Browsers, AreFoundByName) {
  EXPECT_EQ(findBrowser("firefox"), nullptr);
  EXPECT_EQ(findBrowser(""), nullptr);
  EXPECT_EQ(findBrowser("Chrome"), nullptr);
  EXPECT_EQ(browserNames(), "chrome, edge, brave, vivaldi, chromium");
}

TEST(IsClientOf, KnowsChannelsAndOneUsersInstallations) {
  for (const wchar_t* client :
       {L"Google Chrome", L"Google Chrome.ABCDEF0123456789", L"Google Chrome Beta"}) {
    EXPECT_TRUE(isClientOf(*findBrowser("chrome"), client)) << toUtf8(client);
  }
  for (const wchar_t* client :
       {L"Google Chromecast", L"Google", L"Chromium.XYZ", L"Brave Nightly", L""}) {
    EXPECT_FALSE(isClientOf(*findBrowser("chrome"), client)) << toUtf8(client);
  }
  for (const auto& [browser, client] :
       {std::pair("edge", L"Microsoft Edge"), std::pair("brave", L"Brave Nightly"),
        std::pair("vivaldi", L"Vivaldi.QWERTZ"), std::pair("chromium", L"Chromium.XYZ")}) {
    EXPECT_TRUE(isClientOf(*findBrowser(browser), client)) << browser;
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
