#pragma once

#include <array>
#include <string>
#include <string_view>

#include "common/product_names.h"
#include "platform/registry.h"

// The browsers that can start the host, and where each of them looks for it.
namespace media::win::chrome_inspect {

struct Browser {
  const char* name;          // as a person types it
  const char* title;         // as people know it
  const wchar_t* vendorKey;  // below "Software" and, but for Brave, below "Software\Policies"
  const wchar_t* policyKey;
  const wchar_t* clientName;  // what its entry among the system's browsers begins with
};

inline constexpr std::array<Browser, 5> browsers = {{
    {"chrome", "Chrome", chromeVendorKey, chromeVendorKey, L"Google Chrome"},
    {"edge", "Edge", L"Microsoft\\Edge", L"Microsoft\\Edge", L"Microsoft Edge"},
    {"brave", "Brave", L"BraveSoftware\\Brave-Browser", L"BraveSoftware\\Brave", L"Brave"},
    {"vivaldi", "Vivaldi", L"Vivaldi", L"Vivaldi", L"Vivaldi"},
    {"chromium", "Chromium", L"Chromium", L"Chromium", L"Chromium"},
}};

// The browser with this name, nullptr when there is none.
const Browser* findBrowser(std::string_view name);

// All names, for a message: "chrome, edge, ...".
std::string browserNames();

// The key whose default value names the host's manifest, below either root.
std::wstring hostKeyOf(const Browser& browser);

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
                      std::string& text);

}  // namespace media::win::chrome_inspect
