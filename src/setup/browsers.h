#pragma once

#include <array>
#include <string>
#include <string_view>

#include "common/product_names.h"
#include "platform/registry.h"

// The browsers that can start the host, and where each of them looks for it.
namespace media::win::chrome_inspect {

struct Browser {
  const char* name;           // as a person types it
  const char* title;          // as people know it
  const wchar_t* vendorKey;   // below "Software": what the browser keeps about itself
  const wchar_t* policyKey;   // below "Software\Policies"
  const wchar_t* clientName;  // what its entry among the system's browsers begins with
  // Whose NativeMessagingHosts it looks into, in this order; the first is the one that we write.
  std::array<const wchar_t*, 3> hostVendors;
};

inline constexpr const wchar_t* edgeVendorKey = L"Microsoft\\Edge";
inline constexpr const wchar_t* chromiumVendorKey = L"Chromium";

// Where each rule comes from:
// - Chrome: developer.chrome.com, "Native messaging", "Native messaging host location".
// - Edge: learn.microsoft.com/microsoft-edge/extensions/developer-guide/native-messaging, step 3.
// - Chromium: chrome/browser/extensions/api/messaging/launch_context_win.cc in its source: its own
//   key in builds that bear its name, then Chrome's.
// - Brave, Vivaldi: built of that source, which knows no key of theirs; every build reads Chrome's
//   (for Vivaldi also github.com/keepassxreboot/keepassxc-browser, issue 48).
inline constexpr std::array<Browser, 5> browsers = {{
    {"chrome", "Chrome", chromeVendorKey, chromeVendorKey, L"Google Chrome", {chromeVendorKey}},
    {"edge",
     "Edge",
     edgeVendorKey,
     edgeVendorKey,
     L"Microsoft Edge",
     {edgeVendorKey, chromiumVendorKey, chromeVendorKey}},
    {"brave",
     "Brave",
     L"BraveSoftware\\Brave-Browser",
     L"BraveSoftware\\Brave",
     L"Brave",
     {chromeVendorKey}},
    {"vivaldi", "Vivaldi", L"Vivaldi", L"Vivaldi", L"Vivaldi", {chromeVendorKey}},
    {"chromium",
     "Chromium",
     chromiumVendorKey,
     chromiumVendorKey,
     L"Chromium",
     {chromiumVendorKey, chromeVendorKey}},
}};

// The browser with this name, nullptr when there is none.
const Browser* findBrowser(std::string_view name);

// All names, for a message: "chrome, edge, ...".
std::string browserNames();

// The key with the browser's policies, below either root.
std::wstring policyKeyOf(const Browser& browser);

// Whether an entry among the system's browsers is this browser, in any of its channels.
bool isClientOf(const Browser& browser, std::wstring_view client);

// Whether the browser is installed, for the user or for all users: it is listed among the system's
// browsers.
bool isInstalled(const Browser& browser);

// The version that the browser last ran with for this user, empty when it never did.
std::string lastVersionOf(const Browser& browser);

// A registry text as UTF-8; false when there is none.
bool readRegistryText(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                      std::string& text, RegistryView view = RegistryView::bits64);

}  // namespace media::win::chrome_inspect
