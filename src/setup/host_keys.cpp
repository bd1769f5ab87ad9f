#include "setup/host_keys.h"

#include <algorithm>

#include "common/product_names.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {

HostKey writtenKey(const Browser& browser, RegistryRoot root) {
  return {root, RegistryView::bits64, nativeHostKey(browser.hostVendors[0])};
}

std::vector<HostKey> keysReadBy(const Browser& browser, RegistryRoot root) {
  std::vector<HostKey> keys;
  for (const RegistryView view : {RegistryView::bits32, RegistryView::bits64}) {
    if (root == RegistryRoot::user && view == RegistryView::bits32) continue;
    for (const wchar_t* vendor : browser.hostVendors) {
      if (vendor != nullptr) keys.push_back({root, view, nativeHostKey(vendor)});
    }
  }
  return keys;
}

bool findHost(const std::vector<HostKey>& keys, HostKey& found, std::string& manifest) {
  const auto key = std::ranges::find_if(keys, [&](const HostKey& each) {
    return readRegistryText(each.root, each.key, L"", manifest, each.view);
  });
  if (key == keys.end()) return false;
  found = *key;
  return true;
}

std::string shownKey(const HostKey& key) {
  std::wstring path = key.key;
  if (key.view == RegistryView::bits32) path.insert(path.find(L'\\'), L"\\WOW6432Node");
  return (key.root == RegistryRoot::user ? "HKCU\\" : "HKLM\\") + toUtf8(path);
}

}  // namespace media::win::chrome_inspect
