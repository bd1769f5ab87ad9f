#include "setup/browsers.h"

#include "support/testing.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

TEST(Browsers, HaveTheKeysInWhichTheyLook) {
  const std::tuple<const char*, const wchar_t*, const wchar_t*> cases[] = {
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
  for (const auto& [name, host, policy] : cases) {
    SCOPED_TRACE(name);
    const Browser* browser = findBrowser(name);
    ASSERT_NE(browser, nullptr);
    EXPECT_EQ(toUtf8(hostKeyOf(*browser)), toUtf8(host));
    EXPECT_EQ(toUtf8(policyKeyOf(*browser)), toUtf8(policy));
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
