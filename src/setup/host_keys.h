#pragma once

#include <string>
#include <vector>

#include "platform/registry.h"
#include "setup/browsers.h"

// The registry keys whose default value names the host's manifest.
namespace media::win::chrome_inspect {

struct HostKey {
  RegistryRoot root = RegistryRoot::user;
  RegistryView view = RegistryView::bits64;
  std::wstring key;
  bool operator==(const HostKey&) const = default;
};

// The key in which the browser is registered with, for one user or for all.
HostKey writtenKey(const Browser& browser, RegistryRoot root);

// The keys below a root in which the browser looks, in its order: all of them in the view of 32
// bits first, which the user's root has not. A browser takes the user's before the machine's.
std::vector<HostKey> keysReadBy(const Browser& browser, RegistryRoot root);

// The first of the keys that has a default value, and that value; false when none has.
bool findHost(const std::vector<HostKey>& keys, HostKey& found, std::string& manifest);

// A key as people write it: "HKCU\\Software\\...".
std::string shownKey(const HostKey& key);

}  // namespace media::win::chrome_inspect
