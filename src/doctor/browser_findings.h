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
  std::string key;            // in which it finds the host; empty: in none
  std::string manifest;       // what that key names
  bool forAllUsers = false;   // the key is the machine's
  std::string manifestFault;  // empty: a browser takes it
  std::string program;        // that the manifest names
  bool programExists = false;
  bool programIsThis = false;
  bool programPathTooLong = false;  // for Windows to start it
  bool userHostsForbidden = false;  // by policy: hosts of one user alone
  bool hostForbidden = false;       // by policy: this one, or all
};
using BrowserStates = std::array<BrowserState, browsers.size()>;

// Looks at all browsers, in the order of their table, as each of them looks for the host: the
// user's keys first, but last where a policy keeps the browser from them.
BrowserStates lookAtBrowsers(const std::wstring& ownProgram);

// Pure. A key in which several browsers find the host is judged once, with the first of them.
Findings judgeBrowsers(const BrowserStates& states);

// Whether these policy lists forbid the host: the allow list goes before the block list, whose "*"
// means every host. Pure.
bool isHostForbidden(const std::vector<std::string>& blockList,
                     const std::vector<std::string>& allowList);

}  // namespace media::win::chrome_inspect
