// What is reported, and what becomes of the manifest, on a twin without a registry, and with one.

#include "common/whole_file.h"
#include "setup/host_manifest.h"
#include "setup/registration.h"
#include "support/test_folder.h"
#include "support/test_registry.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

using Lines = std::vector<std::string>;

class RegistrationReports : public testing::Test {
 protected:
  RegistrationOptions options(std::vector<std::string> browsers = {}, bool dryRun = false) const {
    return {(folder_.path() / "host.exe").wstring(), std::move(browsers), {}, dryRun};
  }

  const TestFolder folder_;
  const std::string manifest_ = (folder_.path() / "com.quenlark.morva.chrome.json").string();
  const std::string chromeKey_ =
      "HKCU\\Software\\Google\\Chrome\\NativeMessagingHosts\\com.quenlark.morva.chrome";
};

TEST_F(RegistrationReports, AnnounceWhatADryRunWouldDo) {
  const RegistrationReport in = registerHost(options({}, true));
  EXPECT_TRUE(in.ok);
  EXPECT_EQ(in.lines, (Lines{"browsers  none was found here, so the host is registered with Chrome",
                             "manifest  would be written: " + manifest_,
                             "chrome    would be registered: " + chromeKey_}));
  EXPECT_FALSE(fs::exists(manifest_));
  (void)registerHost(options());
  const RegistrationReport out = unregisterHost(options({"edge"}, true));
  EXPECT_TRUE(out.ok);
  EXPECT_EQ(out.lines,
            (Lines{"edge      is not registered", "manifest  would be deleted: " + manifest_}));
  EXPECT_TRUE(fs::exists(manifest_));
}

TEST_F(RegistrationReports, NameTheKeyThatCouldNotBeWritten) {
  for (const char* state : {"written", "is right already"}) {
    const RegistrationReport report = registerHost(options({"chrome"}));
    EXPECT_FALSE(report.ok);
    ASSERT_EQ(report.lines.size(), 2U);
    EXPECT_EQ(report.lines[0], "manifest  " + std::string(state) + ": " + manifest_);
    EXPECT_TRUE(report.lines[1].starts_with("chrome    FAILED: could not write " + chromeKey_ +
                                            " (system error "))
        << report.lines[1];
  }
  std::string text;
  EXPECT_TRUE(readWholeFile(fs::path(manifest_).wstring(), 4096, text));
  EXPECT_EQ(text, manifestText(options().program, {}));
}

TEST_F(RegistrationReports, LookAtAllBrowsersWhenNoneIsNamed) {
  (void)registerHost(options());
  for (const char* state : {"deleted", "is not there"}) {
    const RegistrationReport report = unregisterHost(options());
    EXPECT_TRUE(report.ok);
    EXPECT_EQ(report.lines,
              (Lines{"chrome    is not registered", "edge      is not registered",
                     "brave     uses the key of chrome", "vivaldi   uses the key of chrome",
                     "chromium  is not registered",
                     "manifest  " + std::string(state) + ": " + manifest_}));
  }
}

TEST_F(RegistrationReports, SayThatOnlyAnAdministratorMayRegisterAllUsers) {
  RegistrationOptions everybody = options({"chrome"});
  everybody.allUsers = true;
  for (const auto& change : {registerHost, unregisterHost}) {
    const RegistrationReport report = change(everybody);
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(
        report.lines,
        Lines{"all users FAILED: only an administrator may do this, in a console that runs as "
              "administrator"});
  }
  EXPECT_FALSE(fs::exists(manifest_));
}

TEST_F(RegistrationReports, WarnOfAPathThatWindowsDoesNotStart) {
  for (const std::size_t length : {259U, 260U}) {
    RegistrationOptions deep = options({"chrome"}, true);
    deep.program = L"/" + std::wstring(length - 1, L'x');
    const std::vector<std::string> lines = registerHost(deep).lines;
    const bool warns = std::ranges::count(
        lines,
        "program   WARNING: its path has 260 characters, and Windows starts none of 260 or more; "
        "move it to a shorter folder and register it there");
    EXPECT_EQ(warns, length == 260) << length;
  }
}

TEST_F(RegistrationReports, EndWithAManifestThatCannotBeWritten) {
  fs::create_directory(manifest_);  // in its place
  const RegistrationReport report = registerHost(options({"chrome"}));
  EXPECT_FALSE(report.ok);
  EXPECT_EQ(report.lines, Lines{"manifest  FAILED: could not write " + manifest_});
  EXPECT_FALSE(fs::exists(manifest_ + ".new"));
}

void store(const std::wstring& key, const wchar_t* value, const wchar_t* text,
           RegistryRoot root = RegistryRoot::user) {
  std::uint32_t ignored = 0;
  EXPECT_TRUE(writeRegistryString(root, key, value, text, ignored));
}

// Each step finds the registry as those before it left it.
TEST_F(RegistrationReports, SayWhatBecameOfEachKey) {
  const RegistryTurn turn;
  const std::string edgeKey =
      "HKCU\\Software\\Microsoft\\Edge\\NativeMessagingHosts\\com.quenlark.morva.chrome";
  constexpr const wchar_t* edge =
      L"Software\\Microsoft\\Edge\\NativeMessagingHosts\\com.quenlark.morva.chrome";
  const std::wstring clients = L"Software\\Clients\\StartMenuInternet\\";
  store(clients + L"Google Chrome", L"", L"Chrome");
  store(clients + L"Brave", L"", L"Brave");
  store(clients + L"Microsoft Edge", L"", L"Edge", RegistryRoot::machine);
  store(edge, L"", L"C:\\other.json");
  const std::string there = " in place of \"C:\\other.json\": " + edgeKey;
  EXPECT_EQ(
      registerHost(options({"edge"}, true)).lines,
      (Lines{"manifest  would be written: " + manifest_, "edge      would be registered" + there}));
  EXPECT_EQ(unregisterHost(options({"edge"})).lines,
            (Lines{"edge      left alone, it names \"C:\\other.json\": " + edgeKey,
                   "manifest  is not there: " + manifest_}));
  std::ofstream(manifest_) << "another";
  EXPECT_EQ(registerHost(options()).lines,
            (Lines{"manifest  written: " + manifest_, "chrome    registered: " + chromeKey_,
                   "edge      registered" + there, "brave     uses the key of chrome"}));
  store(edge, L"cli", L"C:\\cli.exe");
  const std::string kept = edgeKey + "; its value \"cli\" stays: C:\\cli.exe";
  EXPECT_EQ(registerHost(options({"edge"})).lines,
            (Lines{"manifest  is right already: " + manifest_,
                   "edge      is registered already: " + kept}));
  EXPECT_EQ(
      unregisterHost(options({"edge", "brave"})).lines,
      (Lines{"edge      unregistered: " + kept, "brave     stays, as Chrome uses it: " + chromeKey_,
             "manifest  stays, as a browser is still registered with it: " + manifest_}));
  deleteRegistryTree(RegistryRoot::user, clients + L"Google Chrome");  // it needs the key no more
  EXPECT_EQ(unregisterHost(options({"brave"}, true)).lines,
            (Lines{"brave     would be unregistered: " + chromeKey_,
                   "manifest  would be deleted: " + manifest_}));
  for (const auto& [isDry, would] : {std::pair(true, "would be "), std::pair(false, "")}) {
    EXPECT_EQ(
        unregisterHost(options({}, isDry)).lines,
        (Lines{"chrome    "s + would + "unregistered: " + chromeKey_, "edge      is not registered",
               "brave     uses the key of chrome", "vivaldi   uses the key of chrome",
               "chromium  is not registered", "manifest  "s + would + "deleted: " + manifest_}));
  }
  EXPECT_FALSE(fs::exists(manifest_));
}

TEST_F(RegistrationReports, RefuseAProgramWhoseNameIsNoText) {
  RegistrationOptions broken = options({"chrome"});
  broken.program += wchar_t{0xD83D};
  EXPECT_EQ(registerHost(broken).lines,
            Lines{"manifest  FAILED: the program's path is no Unicode text, which no manifest can "
                  "hold"});
}

}  // namespace
}  // namespace media::win::chrome_inspect
