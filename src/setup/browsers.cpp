#include "setup/browsers.h"

#include <algorithm>

#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const wchar_t* clientsKey = L"Software\\Clients\\StartMenuInternet";
constexpr std::size_t maxTextBytes = 65536;

bool isListed(RegistryRoot root, const Browser& browser) {
  RegistryKeyContent clients;
  return listRegistryKey(root, clientsKey, clients) &&
         std::ranges::any_of(
             clients.keys, [&](const std::wstring& client) { return isClientOf(browser, client); });
}

}  // namespace

const Browser* findBrowser(std::string_view name) {
  const auto found =
      std::ranges::find_if(browsers, [&](const Browser& each) { return each.name == name; });
  return found == browsers.end() ? nullptr : &*found;
}

std::string browserNames() {
  std::string names;
  for (const Browser& browser : browsers)
    names += (names.empty() ? "" : ", ") + std::string(browser.name);
  return names;
}

std::wstring policyKeyOf(const Browser& browser) {
  return std::wstring(L"Software\\Policies\\") + browser.policyKey;
}

bool isClientOf(const Browser& browser, std::wstring_view client) {
  const std::wstring_view name = browser.clientName;
  if (!client.starts_with(name)) return false;
  // What follows is a channel ("Google Chrome Beta") or the mark of one user's own installation.
  return client.size() == name.size() || client[name.size()] == L'.' || client[name.size()] == L' ';
}

bool isInstalled(const Browser& browser) {
  return isListed(RegistryRoot::user, browser) || isListed(RegistryRoot::machine, browser);
}

std::string lastVersionOf(const Browser& browser) {
  std::string version;
  const std::wstring key = std::wstring(L"Software\\") + browser.vendorKey + L"\\BLBeacon";
  (void)readRegistryText(RegistryRoot::user, key, L"version", version);  // empty says it as well
  return version;
}

bool readRegistryText(RegistryRoot root, const std::wstring& key, const std::wstring& value,
                      std::string& text, RegistryView view) {
  std::string data;
  if (!readRegistryString(root, key, value, maxTextBytes, data, view)) return false;
  text = toUtf8(wideFromUtf16Bytes(data));
  return true;
}

}  // namespace media::win::chrome_inspect
