#include "doctor/browser_findings.h"

#include <algorithm>

#include "common/paths.h"
#include "common/product_names.h"
#include "common/whole_file.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "setup/host_keys.h"
#include "setup/host_manifest.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr RegistryRoot rootsByPrecedence[] = {RegistryRoot::machine, RegistryRoot::user};

// --- Looking ---

// A list policy is a key with one value for each entry.
std::vector<std::string> readPolicyList(const Browser& browser, const wchar_t* name) {
  const std::wstring key = policyKeyOf(browser) + L"\\" + name;
  for (const RegistryRoot root : rootsByPrecedence) {
    RegistryKeyContent content;
    if (!listRegistryKey(root, key, content) || content.values.empty()) continue;
    std::vector<std::string> entries;
    for (const std::wstring& value : content.values) {
      std::string entry;
      if (readRegistryText(root, key, value, entry)) entries.push_back(entry);
    }
    return entries;
  }
  return {};
}

bool areUserHostsForbidden(const Browser& browser) {
  for (const RegistryRoot root : rootsByPrecedence) {
    std::uint32_t allowed = 1;
    if (readRegistryNumber(root, policyKeyOf(browser), L"NativeMessagingUserLevelHosts", allowed)) {
      return allowed == 0;
    }
  }
  return false;
}

bool isFullPath(const std::wstring& path) { return isDrivePath(path) || path.starts_with(L"\\\\"); }

// The program as a full path; a manifest may name it relative to its own folder.
std::wstring programOf(const std::wstring& manifest, const std::string& named) {
  std::wstring program = toWide(named);
  std::wstring full;
  const std::size_t separator = manifest.find_last_of(L"/\\");
  if (!isFullPath(program) && separator != std::wstring::npos) {
    program = joinPath(manifest.substr(0, separator), program);
  }
  return absolutePath(program, full) ? full : program;
}

void lookAtManifest(const std::wstring& ownProgram, BrowserState& state) {
  const std::wstring path = toWide(state.manifest);
  std::string text;
  std::string named;
  if (!isFullPath(path)) {
    state.manifestFault = "it is not named by its full path";
    return;
  }
  if (!readWholeFile(path, maxManifestBytes, text)) {
    state.manifestFault = "it cannot be read";
    return;
  }
  if (!readManifest(text, named, state.manifestFault)) return;
  const std::wstring program = programOf(path, named);
  state.program = toUtf8(program);
  state.programExists = isExistingFile(program);
  state.programIsThis = isSamePath(program, ownProgram);
  state.programPathTooLong = program.size() > maxProgramPath;
}

void lookForHost(const Browser& browser, BrowserState& state) {
  RegistryRoot roots[] = {RegistryRoot::user, RegistryRoot::machine};
  if (state.userHostsForbidden) std::swap(roots[0], roots[1]);
  HostKey key;
  for (const RegistryRoot root : roots) {
    if (!findHost(keysReadBy(browser, root), key, state.manifest)) continue;
    state.key = shownKey(key);
    state.forAllUsers = root == RegistryRoot::machine;
    return;
  }
}

BrowserState lookAtBrowser(const Browser& browser, const std::wstring& ownProgram) {
  BrowserState state;
  state.installed = isInstalled(browser);
  state.version = lastVersionOf(browser);
  state.userHostsForbidden = areUserHostsForbidden(browser);
  lookForHost(browser, state);
  if (!state.key.empty()) lookAtManifest(ownProgram, state);
  state.hostForbidden = isHostForbidden(readPolicyList(browser, L"NativeMessagingBlocklist"),
                                        readPolicyList(browser, L"NativeMessagingAllowlist"));
  return state;
}

// --- Judging ---

std::string registerCommand(const Browser& browser, const BrowserState& state) {
  return "run: " + std::string(programName) + " --register --browser " + browser.name +
         (state.userHostsForbidden ? " --all-users" : "");
}

Finding findingFor(const Browser& browser, const char* what) {
  Finding finding;
  finding.id = std::string("browser.") + browser.name + "." + what;
  finding.subject = std::string(browser.title) + " " + what;
  return finding;
}

bool isRegistered(const BrowserState& state) { return !state.key.empty(); }

// An earlier browser that finds the host in the same key.
const Browser* earlierReader(const BrowserStates& states, std::size_t index) {
  for (std::size_t i = 0; i < index; ++i) {
    if (isRegistered(states.at(i)) && states.at(i).key == states.at(index).key) {
      return &browsers.at(i);
    }
  }
  return nullptr;
}

Finding judgeRegistration(const Browser& browser, const BrowserState& state, bool anyRegistered,
                          const Browser* earlier) {
  Finding finding = findingFor(browser, "registration");
  finding.facts = {{"installed", state.installed},
                   {"version", state.version},
                   {"key", state.key},
                   {"manifest", state.manifest},
                   {"forAllUsers", state.forAllUsers}};
  if (!state.installed && (!isRegistered(state) || earlier != nullptr)) {
    finding.health = Health::note;
    finding.text = isRegistered(state) ? "not installed" : "not installed, not registered";
  } else if (earlier != nullptr) {
    finding.text = std::string("registered, by the key that ") + earlier->title + " reads";
  } else if (isRegistered(state)) {
    finding.text =
        (state.forAllUsers ? "registered for all users: " : "registered: ") + state.manifest;
  } else {
    // Somebody who uses one browser need not register with all.
    finding.health = anyRegistered ? Health::note : Health::problem;
    finding.text = "installed, but not registered";
    finding.remedy = registerCommand(browser, state);
  }
  return finding;
}

Finding judgeManifest(const Browser& browser, const BrowserState& state) {
  Finding finding = findingFor(browser, "manifest");
  finding.facts = {{"program", state.program}, {"thisProgram", state.programIsThis}};
  finding.health = Health::problem;
  finding.remedy = registerCommand(browser, state);
  if (!state.manifestFault.empty()) {
    finding.text = "the browser does not take it: " + state.manifestFault;
  } else if (state.programPathTooLong) {
    finding.text =
        "Windows starts no program at a path of 260 characters or more: " + state.program;
    finding.remedy = "move the program to a shorter folder and register it there";
  } else if (state.programIsThis) {
    finding.health = Health::ok;
    finding.text = "valid, starts this program";
    finding.remedy.clear();
  } else if (!state.programExists) {
    finding.text = "it names a program that is not there: " + state.program;
  } else {
    finding.text = "it starts another program: " + state.program;
    finding.remedy += ", or ask that program's --doctor";
  }
  return finding;
}

Finding judgePolicy(const Browser& browser, const BrowserState& state) {
  Finding finding = findingFor(browser, "policy");
  const bool isUserHost = !state.forAllUsers;
  finding.facts = {{"hostForbidden", state.hostForbidden},
                   {"userHostsForbidden", state.userHostsForbidden}};
  finding.health = Health::problem;
  if (state.hostForbidden) {
    finding.text = "an administrator's policy forbids this host (NativeMessagingBlocklist)";
    finding.remedy = "ask the administrator to put " + std::string(nativeHostName) +
                     " on NativeMessagingAllowlist";
  } else if (state.userHostsForbidden && isUserHost) {
    finding.text =
        "an administrator's policy forbids hosts that are registered for one user "
        "(NativeMessagingUserLevelHosts)";
    finding.remedy = "ask the administrator to allow them, or to run: " + std::string(programName) +
                     " --register --all-users";
  } else {
    finding.health = Health::ok;
    finding.text = "no policy forbids the host";
  }
  return finding;
}

Finding noBrowser() {
  return {
      "browsers",
      "browsers",
      Health::problem,
      "no browser was found, and none is registered",
      "install one of " + browserNames() + " and run: " + std::string(programName) + " --register",
      {}};
}

}  // namespace

BrowserStates lookAtBrowsers(const std::wstring& ownProgram) {
  BrowserStates states;
  for (std::size_t i = 0; i < browsers.size(); ++i) {
    states.at(i) = lookAtBrowser(browsers.at(i), ownProgram);
  }
  return states;
}

Findings judgeBrowsers(const BrowserStates& states) {
  const bool anyRegistered = std::ranges::any_of(states, isRegistered);
  Findings findings;
  if (!anyRegistered && std::ranges::none_of(states, &BrowserState::installed)) {
    findings.push_back(noBrowser());
  }
  for (std::size_t i = 0; i < browsers.size(); ++i) {
    const Browser& browser = browsers.at(i);
    const BrowserState& state = states.at(i);
    const Browser* earlier = earlierReader(states, i);
    findings.push_back(judgeRegistration(browser, state, anyRegistered, earlier));
    if (!isRegistered(state)) continue;
    if (earlier == nullptr) findings.push_back(judgeManifest(browser, state));
    if (earlier == nullptr || state.installed) findings.push_back(judgePolicy(browser, state));
  }
  return findings;
}

bool isHostForbidden(const std::vector<std::string>& blockList,
                     const std::vector<std::string>& allowList) {
  const auto has = [](const std::vector<std::string>& list, std::string_view name) {
    return std::ranges::find(list, name) != list.end();
  };
  const bool isBlocked = has(blockList, "*") || has(blockList, nativeHostName);
  return isBlocked && !has(allowList, nativeHostName);
}

}  // namespace media::win::chrome_inspect
