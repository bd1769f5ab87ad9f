#pragma once

#include <array>
#include <string>
#include <vector>

#include "doctor/finding.h"
#include "setup/browsers.h"

// Whether each browser can start this program: registration, manifest, policies.
namespace media::win::chrome_inspect {

// What a browser was found to be set up like. Texts are UTF-8.
struct BrowserState {
  bool installed = false;
  std::string version;        // empty: not known
  std::string manifest;       // what the key names, empty when it names nothing
  bool forAllUsers = false;   // the key is the machine's, as the user has none
  std::string manifestFault;  // empty: a browser takes it
  std::string program;        // that the manifest names
  bool programExists = false;
  bool programIsThis = false;
  bool userHostsForbidden = false;  // by policy: hosts of one user alone
  bool hostForbidden = false;       // by policy: this one, or all
};
using BrowserStates = std::array<BrowserState, browsers.size()>;

// Looks at all browsers, in the order of their table.
BrowserStates lookAtBrowsers(const std::wstring& ownProgram);

// Pure.
Findings judgeBrowsers(const BrowserStates& states);

// Whether these policy lists forbid the host: the allow list goes before the block list, whose "*"
// means every host. Pure.
bool isHostForbidden(const std::vector<std::string>& blockList,
                     const std::vector<std::string>& allowList);

}  // namespace media::win::chrome_inspect
