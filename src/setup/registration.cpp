#include "setup/registration.h"

#include <algorithm>
#include <utility>

#include "common/whole_file.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "setup/browsers.h"
#include "setup/host_manifest.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr const wchar_t* cliValue = L"cli";
constexpr std::size_t titleWidth = 10;

// The report that is being written, and what all its lines need.
class Work {
 public:
  explicit Work(const RegistrationOptions& options)
      : options_(options), manifest_(manifestPathFor(options.program)) {}

  const RegistrationOptions& options() const { return options_; }
  const std::wstring& manifest() const { return manifest_; }
  bool dryRun() const { return options_.dryRun; }
  RegistrationReport takeReport() { return std::move(report_); }

  void say(std::string title, const std::string& text) {
    title.resize(std::max(title.size(), titleWidth), ' ');
    report_.lines.push_back(title + text);
  }
  bool fail(const std::string& title, const std::string& text) {
    report_.ok = false;
    say(title, "FAILED: " + text);
    return false;
  }

 private:
  RegistrationOptions options_;
  std::wstring manifest_;
  RegistrationReport report_;
};

// A key as people write it.
std::string shown(const std::wstring& key) { return "HKCU\\" + toUtf8(key); }

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string errorText(std::uint32_t systemError) {
  return " (system error " + std::to_string(systemError) + ")";
}

// The manifest that a browser's key names; empty when it names none.
std::wstring registeredManifest(const Browser& browser) {
  std::string text;
  const bool found = readRegistryText(RegistryRoot::user, hostKeyOf(browser), L"", text);
  return found ? toWide(text) : std::wstring();
}

bool namesManifest(const Browser& browser, const std::wstring& manifest) {
  return isSamePath(registeredManifest(browser), manifest);
}

// What a key keeps besides its default value, as the end of a sentence.
std::string keptValues(const std::wstring& key) {
  std::string cli;
  const bool hasCli = readRegistryText(RegistryRoot::user, key, cliValue, cli);
  return hasCli ? "; its value \"cli\" stays: " + cli : std::string();
}

std::vector<const Browser*> named(const std::vector<std::string>& names) {
  std::vector<const Browser*> found;
  for (const std::string& name : names) {
    if (const Browser* browser = findBrowser(name)) found.push_back(browser);
  }
  return found;
}

std::vector<const Browser*> all(bool (*wanted)(const Browser&)) {
  std::vector<const Browser*> found;
  for (const Browser& browser : browsers) {
    if (wanted(browser)) found.push_back(&browser);
  }
  return found;
}

// --- The manifest ---

bool putManifest(const std::wstring& path, const std::string& text) {
  // A browser that reads it meanwhile must find the old one or the new one whole.
  const std::wstring fresh = path + L".new";
  std::string written;
  if (!writeWholeFile(fresh, text)) return false;
  if (!renameOver(fresh, path)) {
    (void)deleteFile(fresh);  // the failure that matters has been seen
    return false;
  }
  return readWholeFile(path, maxManifestBytes, written) && written == text;
}

bool writeManifest(Work& work) {
  const std::string path = toUtf8(work.manifest());
  const std::wstring& program = work.options().program;
  if (toWide(toUtf8(program)) != program) {
    return work.fail("manifest",
                     "the program's path is no Unicode text, which no manifest can hold");
  }
  const std::string text = manifestText(program, work.options().extensionIds);
  std::string there;
  if (readWholeFile(work.manifest(), maxManifestBytes, there) && there == text) {
    work.say("manifest", "is right already: " + path);
  } else if (work.dryRun()) {
    work.say("manifest", "would be written: " + path);
  } else if (putManifest(work.manifest(), text)) {
    work.say("manifest", "written: " + path);
  } else {
    return work.fail("manifest", "could not write " + path);
  }
  return true;
}

void removeManifest(Work& work, bool isStillNamed) {
  const std::string path = toUtf8(work.manifest());
  if (isStillNamed) {
    work.say("manifest", "stays, as a browser is still registered with it: " + path);
  } else if (!isExistingFile(work.manifest())) {
    work.say("manifest", "is not there: " + path);
  } else if (work.dryRun()) {
    work.say("manifest", "would be deleted: " + path);
  } else if (deleteFile(work.manifest())) {
    work.say("manifest", "deleted: " + path);
  } else {
    work.fail("manifest", "could not delete " + path);
  }
}

// --- The keys ---

void registerWith(Work& work, const Browser& browser) {
  const std::wstring key = hostKeyOf(browser);
  const std::wstring before = registeredManifest(browser);
  const std::string where = shown(key) + keptValues(key);
  if (isSamePath(before, work.manifest())) {
    return work.say(browser.name, "is registered already: " + where);
  }
  const std::string instead = before.empty() ? "" : " in place of " + quoted(toUtf8(before));
  if (work.dryRun()) return work.say(browser.name, "would be registered" + instead + ": " + where);
  std::uint32_t systemError = 0;
  if (!writeUserRegistryString(key, L"", work.manifest(), systemError)) {
    work.fail(browser.name, "could not write " + shown(key) + errorText(systemError));
  } else if (!namesManifest(browser, work.manifest())) {
    work.fail(browser.name, shown(key) + " does not hold what was written");
  } else {
    work.say(browser.name, "registered" + instead + ": " + where);
  }
}

// Removes a key that is empty, and then what it leaves empty above it, but never "Software".
bool removeEmptyKeys(std::wstring key, std::uint32_t& systemError) {
  for (std::size_t cut = 0; (cut = key.rfind(L'\\')) != std::wstring::npos; key.resize(cut)) {
    if (!deleteUserRegistryKeyIfEmpty(key, systemError)) return false;
  }
  return true;
}

void unregisterFrom(Work& work, const Browser& browser) {
  const std::wstring key = hostKeyOf(browser);
  const std::wstring before = registeredManifest(browser);
  const std::string where = shown(key) + keptValues(key);
  if (before.empty()) return work.say(browser.name, "is not registered");
  if (!isSamePath(before, work.manifest())) {
    return work.say(browser.name, "left alone, it names " + quoted(toUtf8(before)) + ": " + where);
  }
  if (work.dryRun()) return work.say(browser.name, "would be unregistered: " + where);
  std::uint32_t systemError = 0;
  if (!deleteUserRegistryValue(key, L"", systemError) || !removeEmptyKeys(key, systemError)) {
    work.fail(browser.name, "could not clear " + shown(key) + errorText(systemError));
  } else if (namesManifest(browser, work.manifest())) {
    work.fail(browser.name, shown(key) + " still names the manifest");
  } else {
    work.say(browser.name, "unregistered: " + where);
  }
}

}  // namespace

RegistrationReport registerHost(const RegistrationOptions& options) {
  Work work(options);
  std::vector<const Browser*> chosen = named(options.browsers);
  if (chosen.empty()) chosen = all(isInstalled);
  if (chosen.empty()) {
    work.say("browsers", "none was found here, so the host is registered with Chrome");
    chosen = named({"chrome"});
  }
  // A key that named a manifest that is not there would be worse than no key.
  if (!writeManifest(work)) return work.takeReport();
  for (const Browser* browser : chosen) registerWith(work, *browser);
  return work.takeReport();
}

RegistrationReport unregisterHost(const RegistrationOptions& options) {
  Work work(options);
  std::vector<const Browser*> chosen = named(options.browsers);
  if (chosen.empty()) chosen = all([](const Browser&) { return true; });
  for (const Browser* browser : chosen) unregisterFrom(work, *browser);
  const bool isStillNamed = std::ranges::any_of(browsers, [&](const Browser& browser) {
    const bool isLeaving = work.dryRun() && std::ranges::find(chosen, &browser) != chosen.end();
    return !isLeaving && namesManifest(browser, work.manifest());
  });
  removeManifest(work, isStillNamed);
  return work.takeReport();
}

}  // namespace media::win::chrome_inspect
