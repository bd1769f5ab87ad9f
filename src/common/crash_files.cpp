#include "common/crash_files.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <tuple>

#include "common/paths.h"
#include "common/product_version.h"
#include "platform/crash_dump.h"
#include "platform/files.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::string_view namePrefix = "crash-";
constexpr std::string_view nameEnd = ".dmp";
constexpr std::string_view stampForm = "00000000T000000Z";  // 0 stands for a digit

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isStamp(std::string_view text) {
  return std::ranges::equal(text, stampForm, [](char given, char form) {
    return form == '0' ? isDigit(given) : given == form;
  });
}

// Takes what stands behind the last "-" off a text; all of it when there is none.
std::string_view takeLastPart(std::string_view& text) {
  const std::size_t dash = text.rfind('-');
  const std::string_view part = dash == std::string_view::npos ? text : text.substr(dash + 1);
  text = dash == std::string_view::npos ? "" : text.substr(0, dash);
  return part;
}

std::string readable(std::string_view stamp) {
  const auto part = [&](std::size_t at, std::size_t size) {
    return std::string(stamp.substr(at, size));
  };
  return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 2) + " " + part(9, 2) + ":" + part(11, 2) +
         ":" + part(13, 2) + " UTC";
}

void makeCrashFolder() { (void)makeFolderWithParents(crashFolderPath()); }

void dropOldOnes() { dropOldCrashFiles(crashFolderPath()); }

}  // namespace

bool readCrashFileName(const std::wstring& name, CrashFile& file) {
  const std::string whole = toUtf8(name);
  std::string_view text = whole;
  if (!text.starts_with(namePrefix) || !text.ends_with(nameEnd)) return false;
  text.remove_prefix(namePrefix.size());
  text.remove_suffix(std::min(text.size(), nameEnd.size()));
  const std::string_view process = takeLastPart(text);
  const std::string_view stamp = takeLastPart(text);
  if (process.empty() || !std::ranges::all_of(process, isDigit) || !isStamp(stamp) || text.empty())
    return false;
  file = {name, std::string(text), readable(stamp)};
  return true;
}

std::wstring crashFolderPath() {
  std::wstring folder = hostDataFolderPathByEnvironment();
  if (folder.empty()) folder = hostDataFolderPath();
  return folder.empty() ? folder : joinPath(folder, L"crashes");
}

std::vector<CrashFile> crashFilesIn(const std::wstring& folder) {
  std::vector<CrashFile> files;
  CrashFile file;
  // A folder that is not there, or cannot be read to its end, has those that were found.
  (void)visitFolder(folder, [&](const FolderEntry& entry) {
    if (entry.isRegular && readCrashFileName(entry.name, file)) files.push_back(file);
    return true;
  });
  std::ranges::sort(files, std::ranges::greater(),
                    [](const CrashFile& each) { return std::tie(each.when, each.name); });
  return files;
}

void dropOldCrashFiles(const std::wstring& folder) {
  const std::vector<CrashFile> files = crashFilesIn(folder);
  for (std::size_t i = maxCrashFiles; i < files.size(); ++i) {
    (void)deleteFile(joinPath(folder, files[i].name));  // the next crash tries again
  }
}

void leaveCrashFiles() {
  const std::wstring folder = crashFolderPath();
  if (folder.empty()) return;
  const std::string begin = std::string(namePrefix) + productVersion + "-";
  traceCrashes({joinPath(folder, toWide(begin)), makeCrashFolder, dropOldOnes});
}

}  // namespace media::win::chrome_inspect
