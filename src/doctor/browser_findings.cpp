#include "doctor/browser_findings.h"

#include <algorithm>

#include "common/paths.h"
#include "common/product_names.h"
#include "common/whole_file.h"
#include "platform/files.h"
#include "platform/registry.h"
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

// The program as a full path; a manifest may name it relative to its own folder.
std::wstring programOf(const std::wstring& manifest, const std::string& named) {
  std::wstring program = toWide(named);
  std::wstring full;
  const std::size_t separator = manifest.find_last_of(L"/\\");
  const bool isRelative = !isDrivePath(program) && !program.starts_with(L"\\\\");
  if (isRelative && separator != std::wstring::npos) {
    program = joinPath(manifest.substr(0, separator), program);
  }
  return absolutePath(program, full) ? full : program;
}

void lookAtManifest(const std::wstring& ownProgram, BrowserState& state) {
  const std::wstring path = toWide(state.manifest);
  std::string text;
  std::string named;
  if (!readWholeFile(path, maxManifestBytes, text)) {
    state.manifestFault = "it cannot be read";
    return;
  }
  if (!readManifest(text, named, state.manifestFault)) return;
  const std::wstring program = programOf(path, named);
  state.program = toUtf8(program);
  state.programExists = isExistingFile(program);
  state.programIsThis = isSamePath(program, ownProgram);
}

BrowserState lookAtBrowser(const Browser& browser, const std::wstring& ownProgram) {
  BrowserState state;
  state.installed = isInstalled(browser);
  state.version = lastVersionOf(browser);
  const std::wstring key = hostKeyOf(browser);
  if (!readRegistryText(RegistryRoot::user, key, L"", state.manifest)) {
    state.forAllUsers = readRegistryText(RegistryRoot::machine, key, L"", state.manifest);
  }
  if (!state.manifest.empty()) lookAtManifest(ownProgram, state);
  state.userHostsForbidden = areUserHostsForbidden(browser);
  state.hostForbidden = isHostForbidden(readPolicyList(browser, L"NativeMessagingBlocklist"),
                                        readPolicyList(browser, L"NativeMessagingAllowlist"));
  return state;
}

// --- Judging ---

std::string registerCommand(const Browser& browser) {
  return "run: " + std::string(programName) + " --register --browser " + browser.name;
}

Finding findingFor(const Browser& browser, const char* what) {
  Finding finding;
  finding.id = std::string("browser.") + browser.name + "." + what;
  finding.subject = std::string(browser.title) + " " + what;
  return finding;
}

Finding judgeRegistration(const Browser& browser, const BrowserState& state, bool anyRegistered) {
  Finding finding = findingFor(browser, "registration");
  finding.facts = {{"installed", state.installed},
                   {"version", state.version},
                   {"manifest", state.manifest},
                   {"forAllUsers", state.forAllUsers}};
  if (!state.manifest.empty()) {
    finding.text =
        (state.forAllUsers ? "registered for all users: " : "registered: ") + state.manifest;
  } else if (!state.installed) {
    finding.health = Health::note;
    finding.text = "not installed, not registered";
  } else {
    // Somebody who uses one browser need not register with all.
    finding.health = anyRegistered ? Health::note : Health::problem;
    finding.text = "installed, but not registered";
    finding.remedy = registerCommand(browser);
  }
  return finding;
}

Finding judgeManifest(const Browser& browser, const BrowserState& state) {
  Finding finding = findingFor(browser, "manifest");
  finding.facts = {{"program", state.program}, {"thisProgram", state.programIsThis}};
  finding.health = Health::problem;
  finding.remedy = registerCommand(browser);
  if (!state.manifestFault.empty()) {
    finding.text = "the browser does not take it: " + state.manifestFault;
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
    finding.remedy = "ask the administrator to allow them, or to register the host for all users";
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
  const auto isRegistered = [](const BrowserState& state) { return !state.manifest.empty(); };
  const bool anyRegistered = std::ranges::any_of(states, isRegistered);
  Findings findings;
  if (!anyRegistered && std::ranges::none_of(states, &BrowserState::installed)) {
    findings.push_back(noBrowser());
  }
  for (std::size_t i = 0; i < browsers.size(); ++i) {
    const Browser& browser = browsers.at(i);
    const BrowserState& state = states.at(i);
    findings.push_back(judgeRegistration(browser, state, anyRegistered));
    if (!isRegistered(state)) continue;
    findings.push_back(judgeManifest(browser, state));
    findings.push_back(judgePolicy(browser, state));
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
