#include "setup/browsers.h"

#include <gtest/gtest.h>

#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

TEST(Browsers, HaveTheKeysInWhichTheyLook) {
  const struct {
    const char* name;
    const wchar_t* host;
    const wchar_t* policy;
  } cases[] = {
      {"chrome", L"Software\\Google\\Chrome\\NativeMessagingHosts\\com.quenlark.morva.chrome",
       L"Software\\Policies\\Google\\Chrome"},
      {"edge", L"Software\\Microsoft\\Edge\\NativeMessagingHosts\\com.quenlark.morva.chrome",
       L"Software\\Policies\\Microsoft\\Edge"},
      {"brave",
       L"Software\\BraveSoftware\\Brave-Browser\\NativeMessagingHosts\\com.quenlark.morva.chrome",
       L"Software\\Policies\\BraveSoftware\\Brave"},
      {"vivaldi", L"Software\\Vivaldi\\NativeMessagingHosts\\com.quenlark.morva.chrome",
       L"Software\\Policies\\Vivaldi"},
      {"chromium", L"Software\\Chromium\\NativeMessagingHosts\\com.quenlark.morva.chrome",
       L"Software\\Policies\\Chromium"},
  };
  EXPECT_EQ(std::size(cases), browsers.size());
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Browser* browser = findBrowser(c.name);
    ASSERT_NE(browser, nullptr);
    EXPECT_EQ(toUtf8(hostKeyOf(*browser)), toUtf8(c.host));
    EXPECT_EQ(toUtf8(policyKeyOf(*browser)), toUtf8(c.policy));
  }
}

TEST(Browsers, AreFoundByName) {
  EXPECT_EQ(findBrowser("firefox"), nullptr);
  EXPECT_EQ(findBrowser(""), nullptr);
  EXPECT_EQ(findBrowser("Chrome"), nullptr);
  EXPECT_EQ(browserNames(), "chrome, edge, brave, vivaldi, chromium");
}

TEST(IsClientOf, KnowsChannelsAndOneUsersInstallations) {
  const struct {
    const char* browser;
    const wchar_t* client;
    bool matches;
  } cases[] = {
      {"chrome", L"Google Chrome", true},
      {"chrome", L"Google Chrome.ABCDEF0123456789", true},
      {"chrome", L"Google Chrome Beta", true},
      {"chrome", L"Google Chromecast", false},
      {"chrome", L"Chromium.XYZ", false},
      {"chrome", L"IEXPLORE.EXE", false},
      {"chromium", L"Chromium.XYZ", true},
      {"edge", L"Microsoft Edge", true},
      {"edge", L"Microsoft", false},
      {"brave", L"Brave", true},
      {"brave", L"Brave Nightly", true},
      {"vivaldi", L"Vivaldi.QWERTZ", true},
      {"vivaldi", L"", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isClientOf(*findBrowser(c.browser), c.client), c.matches) << toUtf8(c.client);
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
