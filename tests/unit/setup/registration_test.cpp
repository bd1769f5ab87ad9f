// Writes keys of the user who runs it, so every test begins and ends without them.
#include "setup/registration.h"

#include <cwctype>

#include "common/whole_file.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "setup/browsers.h"
#include "setup/host_keys.h"
#include "setup/host_manifest.h"
#include "support/test_folder.h"
#include "support/test_registry.h"
#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const char* browserName = "edge";
constexpr const wchar_t* vendorKey = L"Software\\Microsoft\\Edge";

// Read by browsers before the key that is written for all users.
constexpr const wchar_t* hidingKey = L"Software\\WOW6432Node\\Microsoft\\Edge";

class Registration : public testing::Test {
 protected:
  Registration() { clear(); }
  ~Registration() override { clear(); }

  RegistrationOptions options(bool dryRun = false) const {
    return {program(), {browserName}, {}, dryRun};
  }
  std::wstring program() const { return (folder_.path() / "morva-chrome-host.exe").wstring(); }
  std::wstring manifest() const { return manifestPathFor(program()); }
  static std::wstring key() {
    return writtenKey(*findBrowser(browserName), RegistryRoot::user).key;
  }

  static std::string registered() {
    std::string text;
    return readRegistryText(RegistryRoot::user, key(), L"", text) ? text : "(none)";
  }
  static bool hasKey(const std::wstring& name) {
    RegistryKeyContent ignored;
    return listRegistryKey(RegistryRoot::user, name, ignored);
  }
  static void store(const std::wstring& value, const std::wstring& text) {
    std::uint32_t systemError = 0;
    ASSERT_TRUE(writeRegistryString(RegistryRoot::user, key(), value, text, systemError))
        << systemError;
  }

  TestFolder folder_;

 private:
  const RegistryTurn turn_;

  static void clear() {
    for (const RegistryRoot root : {RegistryRoot::user, RegistryRoot::machine}) {
      deleteRegistryTree(root, vendorKey);
    }
    deleteRegistryTree(RegistryRoot::machine, hidingKey);
  }
};

std::string textOf(const RegistrationReport& report) {
  std::string text;
  for (const std::string& line : report.lines) text += line + "\n";
  return text;
}

TEST_F(Registration, IsTakenBackExactly) {
  EXPECT_TRUE(registerHost(options()).ok);
  EXPECT_EQ(registered(), toUtf8(manifest()));
  std::string text;
  EXPECT_TRUE(readWholeFile(manifest(), maxManifestBytes, text));
  EXPECT_EQ(text, manifestText(program(), {}));
  EXPECT_TRUE(unregisterHost(options()).ok);
  EXPECT_FALSE(hasKey(vendorKey));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(Registration, KeepsOtherValuesOfTheKey) {
  store(L"cli", L"C:\\cli.exe");
  const std::string text = textOf(registerHost(options()));
  EXPECT_NE(text.find("its value \"cli\" stays: C:\\cli.exe"), std::string::npos) << text;
  EXPECT_TRUE(unregisterHost(options()).ok);
  std::string cli;
  EXPECT_TRUE(readRegistryText(RegistryRoot::user, key(), L"cli", cli));
  EXPECT_EQ(cli, "C:\\cli.exe");
  EXPECT_EQ(registered(), "(none)");
}

TEST_F(Registration, LeavesAnotherVersionAloneUntilItTakesItsPlace) {
  store(L"", L"C:\\other\\com.quenlark.morva.chrome.json");
  const RegistrationReport out = unregisterHost(options());
  EXPECT_TRUE(out.ok);
  EXPECT_NE(textOf(out).find("left alone"), std::string::npos) << textOf(out);
  EXPECT_EQ(registered(), "C:\\other\\com.quenlark.morva.chrome.json");
  const RegistrationReport in = registerHost(options());
  EXPECT_TRUE(in.ok);
  EXPECT_NE(textOf(in).find("in place of \"C:\\other"), std::string::npos) << textOf(in);
  EXPECT_EQ(registered(), toUtf8(manifest()));
}

TEST_F(Registration, KnowsItsManifestInAnyLetterCaseWhereThatDoesNotCount) {
  EXPECT_TRUE(registerHost(options()).ok);
  std::wstring shouted = manifest();
  for (wchar_t& c : shouted) c = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(c)));
  store(L"", shouted);
  const bool isKnown = isSamePath(shouted, manifest());
  const std::string text = textOf(registerHost(options()));
  EXPECT_EQ(text.find("is registered already") != text.npos, isKnown) << text;
  EXPECT_EQ(text.find("in place of") != text.npos, !isKnown) << text;
  EXPECT_TRUE(unregisterHost(options()).ok);
  EXPECT_EQ(registered(), "(none)");
}

TEST_F(Registration, ChangesNothingInADryRun) {
  EXPECT_TRUE(registerHost(options(true)).ok);
  EXPECT_FALSE(hasKey(vendorKey));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  EXPECT_TRUE(registerHost(options()).ok);
  EXPECT_TRUE(unregisterHost(options(true)).ok);
  EXPECT_EQ(registered(), toUtf8(manifest()));
  EXPECT_TRUE(std::filesystem::exists(manifest()));
}

TEST_F(Registration, WritesNoKeyWithoutAManifest) {
  std::filesystem::create_directory(manifest());  // in its place
  const RegistrationReport report = registerHost(options());
  EXPECT_FALSE(report.ok);
  EXPECT_NE(textOf(report).find("FAILED: could not write"), std::string::npos) << textOf(report);
  EXPECT_FALSE(hasKey(vendorKey));
  EXPECT_FALSE(std::filesystem::exists(manifest() + L".new"));
}

TEST_F(Registration, RefusesAPathThatNoManifestCanHold) {
  RegistrationOptions broken = options();
  broken.program = folder_.path().wstring() + L"\\" + wchar_t{0xD83D} + L"\\x.exe";
  EXPECT_FALSE(registerHost(broken).ok);
  EXPECT_FALSE(hasKey(vendorKey));
}

TEST_F(Registration, OfAllUsersIsTheMachinesAndIsNotHidden) {
  RegistrationOptions everybody = options();
  everybody.allUsers = true;
  const auto machines = [&] {
    std::string text;
    return readRegistryText(RegistryRoot::machine, key(), L"", text) ? text : "(none)";
  };
  EXPECT_TRUE(registerHost(everybody).ok);
  EXPECT_EQ(machines(), toUtf8(manifest()));
  EXPECT_EQ(registered(), "(none)");

  const std::wstring hiding = hidingKey + key().substr(std::wstring(vendorKey).size());
  std::uint32_t systemError = 0;
  ASSERT_TRUE(writeRegistryString(RegistryRoot::machine, hiding, L"", L"C:\\x.json", systemError));
  const RegistrationReport hidden = registerHost(everybody);
  EXPECT_FALSE(hidden.ok);
  EXPECT_NE(textOf(hidden).find("looks first into HKLM\\Software\\WOW6432Node\\Microsoft\\Edge\\"),
            std::string::npos)
      << textOf(hidden);

  const std::string stays = textOf(unregisterHost(options()));  // for one user
  EXPECT_NE(stays.find("manifest  stays"), std::string::npos) << stays;
  EXPECT_TRUE(unregisterHost(everybody).ok);
  EXPECT_EQ(machines(), "(none)");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(Registration, LeavesNeighboursInTheVendorsKey) {
  std::uint32_t systemError = 0;
  const std::wstring neighbour = std::wstring(vendorKey) + L"\\BLBeacon";
  ASSERT_TRUE(writeRegistryString(RegistryRoot::user, neighbour, L"version", L"7.1", systemError));
  EXPECT_EQ(lastVersionOf(*findBrowser(browserName)), "7.1");
  EXPECT_TRUE(registerHost(options()).ok);
  EXPECT_TRUE(unregisterHost(options()).ok);
  EXPECT_TRUE(hasKey(neighbour));
  EXPECT_FALSE(hasKey(std::wstring(vendorKey) + L"\\NativeMessagingHosts"));
  EXPECT_TRUE(deleteRegistryValue(RegistryRoot::user, neighbour, L"version", systemError));
  EXPECT_TRUE(deleteRegistryKeyIfEmpty(RegistryRoot::user, neighbour, systemError));
}

}  // namespace
}  // namespace media::win::chrome_inspect
