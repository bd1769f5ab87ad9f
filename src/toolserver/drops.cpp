#include "toolserver/drops.h"

#include <atomic>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "common/paths.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "text/utf8.h"
#include "text/wide.h"
#include "toolserver/local_files.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::int64_t oneDayMs = 24LL * 60 * 60 * 1000;
constexpr std::string_view forbiddenInNames = "\"*:<>?|";

std::atomic<std::uint32_t> dropCounter = 0;

json failure(const char* error) { return {{"ok", false}, {"error", error}}; }

bool isKept(char c) {
  return static_cast<unsigned char>(c) >= 32 && forbiddenInNames.find(c) == std::string_view::npos;
}

// Windows drops blanks and dots from the end of a name.
std::string_view trimEnd(std::string_view name) {
  const std::size_t last = name.find_last_not_of(" .");
  return name.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// Makes the folder and sees that it is where it seems to be: deleting old files through a link
// would delete somebody else's.
bool prepareFolder(const std::wstring& workFolder, const std::wstring& folder, FileFacts& drops) {
  if (!makeFolderWithParents(folder) || !folderFacts(folder, drops) || drops.isLink) return false;
  const std::wstring finalFolder = finalFolderPath(workFolder);
  return !finalFolder.empty() &&
         isSamePath(drops.finalPath, joinPath(finalFolder, dropsFolderName));
}

// Deletes a file of the folder that has this final path, but nothing to which its name only leads:
// a listing may show what a link points to. What cannot be deleted is left to the next upload.
void deleteInFolder(const std::wstring& path, const std::wstring& folderFinalPath) {
  OwnedFile file;
  FileFacts facts;
  if (!openForReading(path, file, facts) || !facts.isRegular) return;
  if (!isInsideFolder(facts.finalPath, folderFinalPath)) return;
  file.reset();
  (void)deleteFile(path);
}

// Deletes old files and counts recent ones, up to the limit. False when the folder cannot be read.
bool pruneFolder(const std::wstring& folder, const FileFacts& facts, std::size_t& recent) {
  recent = 0;
  return visitFolder(folder, [&](const FolderEntry& entry) {
    if (!entry.isRegular) return true;
    if (isRecentDrop(entry.ageMs)) return ++recent < maxRecentDrops;
    deleteInFolder(joinPath(folder, entry.name), facts.finalPath);
    return true;
  });
}

// A name that nobody else has, the time first: so no hint can name a device or an existing file.
std::string newDropName(std::string_view nameHint) {
  return std::to_string(tickCountMs()) + "-" + std::to_string(dropCounter++) + "-" +
         cleanDropName(nameHint);
}

}  // namespace

bool isRecentDrop(std::int64_t ageMs) { return ageMs <= oneDayMs && ageMs >= -oneDayMs; }

json saveDroppedFile(std::string_view nameHint, const std::string& body) {
  if (body.empty()) return failure("empty file");
  const std::wstring& workFolder = hostDataFolder();
  if (workFolder.empty()) return failure("chrome work folder is unavailable");
  const std::wstring folder = joinPath(workFolder, dropsFolderName);
  FileFacts facts;
  std::size_t recent = 0;
  if (!prepareFolder(workFolder, folder, facts) || !pruneFolder(folder, facts, recent)) {
    return failure("could not create the drops folder");
  }
  if (recent >= maxRecentDrops) return failure("drops folder is full");
  std::wstring name;
  if (!wideFromUtf8(newDropName(nameHint), name)) return failure("could not name the file");
  const std::wstring path = joinPath(folder, name);
  if (!writeWholeFile(path, body)) return failure("could not write the file");
  return {{"ok", true}, {"path", toUtf8(path)}};
}

std::string cleanDropName(std::string_view nameHint) {
  const std::size_t separator = nameHint.find_last_of("/\\");
  if (separator != std::string_view::npos) nameHint.remove_prefix(separator + 1);
  std::string name;
  for (const char c : nameHint) {
    if (isKept(c)) name += c;
  }
  const std::string_view kept = trimEnd(cutUtf8(trimEnd(name), maxDropNameBytes));
  return std::string(kept.empty() ? "file" : kept);
}

}  // namespace media::win::chrome_inspect
