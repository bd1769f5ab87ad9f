#pragma once

#include <string>
#include <vector>

// Makes the host known to browsers, and undoes that: a manifest beside the program, and for each
// browser a registry key whose default value names the manifest. Browsers may share a key.
namespace media::win::chrome_inspect {

struct RegistrationOptions {
  std::wstring program;                   // full path of the program that browsers are to start
  std::vector<std::string> browsers;      // names; empty: see below
  std::vector<std::string> extensionIds;  // that may start it besides the assistant's own
  bool dryRun = false;                    // says what would be done and changes nothing
  bool allUsers = false;                  // of the machine, which takes an administrator
};

// What was done, for a person: one line for the manifest and one for each browser.
struct RegistrationReport {
  bool ok = true;
  std::vector<std::string> lines;
};

// Writes the manifest and the keys; without names for all browsers that are installed or, when none
// is, for Chrome. What is right already is left as it is; whether each browser now finds ours is
// looked up. A key that named another manifest is pointed at ours; its other values, such as "cli",
// stay.
RegistrationReport registerHost(const RegistrationOptions& options);

// Takes back what names our manifest, and nothing else: the default value, the key when nothing
// else is in it, and above it what is empty then. Without names for all browsers of the table; with
// names a key stays while another installed browser is registered by it. The manifest goes when no
// browser's key names it any more.
RegistrationReport unregisterHost(const RegistrationOptions& options);

}  // namespace media::win::chrome_inspect
