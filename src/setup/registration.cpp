#include "setup/registration.h"

#include <algorithm>
#include <new>
#include <utility>

#include "common/whole_file.h"
#include "platform/files.h"
#include "platform/registry.h"
#include "setup/browsers.h"
#include "setup/host_keys.h"
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
  RegistryRoot root() const {
    return options_.allUsers ? RegistryRoot::machine : RegistryRoot::user;
  }
  // Keys that a dry run would clear.
  void leave(const HostKey& key) { leaving_.push_back(key); }
  bool isLeaving(const HostKey& key) const {
    return std::ranges::find(leaving_, key) != leaving_.end();
  }
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
  std::vector<HostKey> leaving_;
  RegistrationReport report_;
};

std::string inQuotes(const std::string& text) { return "\"" + text + "\""; }

std::string errorText(std::uint32_t systemError) {
  return " (system error " + std::to_string(systemError) + ")";
}

// The manifest that a key names; empty when it names none.
std::wstring registeredManifest(const HostKey& key) {
  HostKey ignored;
  std::string text;
  return findHost({key}, ignored, text) ? toWide(text) : std::wstring();
}

bool namesManifest(const HostKey& key, const std::wstring& manifest) {
  return isSamePath(registeredManifest(key), manifest);
}

// What a key keeps besides its default value, as the end of a sentence.
std::string keptValues(const HostKey& key) {
  std::string cli;
  const bool hasCli = readRegistryText(key.root, key.key, cliValue, cli);
  return hasCli ? "; its value \"cli\" stays: " + cli : std::string();
}

using Chosen = std::vector<const Browser*>;

Chosen named(const std::vector<std::string>& names) {
  Chosen found;
  for (const std::string& name : names) {
    if (const Browser* browser = findBrowser(name)) found.push_back(browser);
  }
  return found;
}

Chosen all(bool (*wanted)(const Browser&)) {
  Chosen found;
  for (const Browser& browser : browsers) {
    if (wanted(browser)) found.push_back(&browser);
  }
  return found;
}

// --- The manifest ---

// A browser that reads the manifest meanwhile must find the old one or the new one whole.
bool replaceFile(const std::wstring& path, const std::string& text) {
  const std::wstring fresh = path + L".new";
  try {
    if (writeWholeFile(fresh, text) && renameOver(fresh, path)) return true;
  } catch (const std::bad_alloc&) {
    (void)deleteFile(fresh);
    throw;
  }
  (void)deleteFile(fresh);  // the failure that matters has been seen
  return false;
}

bool putManifest(const std::wstring& path, const std::string& text) {
  std::string written;
  return replaceFile(path, text) && readWholeFile(path, maxManifestBytes, written) &&
         written == text;
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

// The browser before this one among the chosen that is registered by the same key.
const Browser* earlierUser(const Chosen& chosen, const Browser& browser, RegistryRoot root) {
  for (const Browser* each : chosen) {
    if (each == &browser) break;
    if (writtenKey(*each, root) == writtenKey(browser, root)) return each;
  }
  return nullptr;
}

// A browser that is installed, not among the chosen, and registered by this key.
const Browser* otherUser(const Chosen& chosen, const HostKey& key) {
  for (const Browser& browser : browsers) {
    const bool isChosen = std::ranges::find(chosen, &browser) != chosen.end();
    if (!isChosen && writtenKey(browser, key.root) == key && isInstalled(browser)) return &browser;
  }
  return nullptr;
}

bool writeKey(Work& work, const Browser& browser, const HostKey& key) {
  const std::wstring before = registeredManifest(key);
  const std::string where = shownKey(key) + keptValues(key);
  if (isSamePath(before, work.manifest())) {
    work.say(browser.name, "is registered already: " + where);
    return true;
  }
  const std::string instead = before.empty() ? "" : " in place of " + inQuotes(toUtf8(before));
  if (work.dryRun()) {
    work.say(browser.name, "would be registered" + instead + ": " + where);
    return true;
  }
  std::uint32_t systemError = 0;
  if (!writeRegistryString(key.root, key.key, L"", work.manifest(), systemError)) {
    return work.fail(browser.name, "could not write " + shownKey(key) + errorText(systemError));
  }
  work.say(browser.name, "registered" + instead + ": " + where);
  return true;
}

// What the browser will find there, which may be hidden by a key that it reads before ours.
void checkFound(Work& work, const Browser& browser) {
  HostKey key;
  std::string manifest;
  const bool isFound = findHost(keysReadBy(browser, work.root()), key, manifest);
  if (isFound && isSamePath(toWide(manifest), work.manifest())) return;
  work.fail(browser.name,
            isFound ? "looks first into " + shownKey(key) + ", which names " + inQuotes(manifest)
                    : "does not find what was written");
}

void registerWith(Work& work, const Browser& browser, const Chosen& chosen) {
  const HostKey key = writtenKey(browser, work.root());
  if (const Browser* earlier = earlierUser(chosen, browser, work.root())) {
    return work.say(browser.name, std::string("uses the key of ") + earlier->name);
  }
  if (writeKey(work, browser, key) && !work.dryRun()) checkFound(work, browser);
}

// Removes a key that is empty, and then what it leaves empty above it, but never "Software".
bool removeEmptyKeys(RegistryRoot root, std::wstring key, std::uint32_t& systemError) {
  for (std::size_t cut = 0; (cut = key.rfind(L'\\')) != std::wstring::npos; key.resize(cut)) {
    if (!deleteRegistryKeyIfEmpty(root, key, systemError)) return false;
  }
  return true;
}

bool clearKey(const HostKey& key, std::uint32_t& systemError) {
  return deleteRegistryValue(key.root, key.key, L"", systemError) &&
         removeEmptyKeys(key.root, key.key, systemError);
}

void unregisterFrom(Work& work, const Browser& browser, const Chosen& chosen) {
  const HostKey key = writtenKey(browser, work.root());
  const std::wstring before = registeredManifest(key);
  const std::string where = shownKey(key) + keptValues(key);
  if (const Browser* earlier = earlierUser(chosen, browser, work.root())) {
    return work.say(browser.name, std::string("uses the key of ") + earlier->name);
  }
  if (before.empty()) return work.say(browser.name, "is not registered");
  if (!isSamePath(before, work.manifest())) {
    return work.say(browser.name,
                    "left alone, it names " + inQuotes(toUtf8(before)) + ": " + where);
  }
  if (const Browser* other = otherUser(chosen, key)) {
    return work.say(browser.name, std::string("stays, as ") + other->title + " uses it: " + where);
  }
  if (work.dryRun()) {
    work.leave(key);
    return work.say(browser.name, "would be unregistered: " + where);
  }
  std::uint32_t systemError = 0;
  if (!clearKey(key, systemError)) {
    work.fail(browser.name, "could not clear " + shownKey(key) + errorText(systemError));
  } else if (namesManifest(key, work.manifest())) {
    work.fail(browser.name, shownKey(key) + " still names the manifest");
  } else {
    work.say(browser.name, "unregistered: " + where);
  }
}

// Whether a key of any browser, for whomever, names our manifest.
bool isStillNamed(const Work& work) {
  for (const Browser& browser : browsers) {
    for (const RegistryRoot root : {RegistryRoot::user, RegistryRoot::machine}) {
      for (const HostKey& key : keysReadBy(browser, root)) {
        if (!work.isLeaving(key) && namesManifest(key, work.manifest())) return true;
      }
    }
  }
  return false;
}

bool mayChange(Work& work) {
  if (mayWriteRegistry(work.root())) return true;
  return work.fail("all users",
                   "only an administrator may do this, in a console that runs as administrator");
}

void warnOfLongPath(Work& work) {
  const std::size_t length = work.options().program.size();
  if (length <= maxProgramPath) return;
  work.say("program", "WARNING: its path has " + std::to_string(length) +
                          " characters, and Windows starts none of 260 or more; move it to a "
                          "shorter folder and register it there");
}

}  // namespace

RegistrationReport registerHost(const RegistrationOptions& options) {
  Work work(options);
  if (!mayChange(work)) return work.takeReport();
  Chosen chosen = named(options.browsers);
  if (chosen.empty()) chosen = all(isInstalled);
  if (chosen.empty()) {
    work.say("browsers", "none was found here, so the host is registered with Chrome");
    chosen = named({"chrome"});
  }
  warnOfLongPath(work);
  // A key that named a manifest that is not there would be worse than no key.
  if (!writeManifest(work)) return work.takeReport();
  for (const Browser* browser : chosen) registerWith(work, *browser, chosen);
  return work.takeReport();
}

RegistrationReport unregisterHost(const RegistrationOptions& options) {
  Work work(options);
  if (!mayChange(work)) return work.takeReport();
  Chosen chosen = named(options.browsers);
  if (chosen.empty()) chosen = all([](const Browser&) { return true; });
  for (const Browser* browser : chosen) unregisterFrom(work, *browser, chosen);
  removeManifest(work, isStillNamed(work));
  return work.takeReport();
}

}  // namespace media::win::chrome_inspect
