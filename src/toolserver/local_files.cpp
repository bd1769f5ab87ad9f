#include "toolserver/local_files.h"

#include <algorithm>
#include <iterator>

#include "common/paths.h"
#include "common/whole_file.h"
#include "platform/files.h"
#include "text/ascii.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

struct ContentType {
  std::string_view extension;
  std::string_view type;
};

constexpr ContentType contentTypes[] = {
    {".png", "image/png"},   {".jpg", "image/jpeg"}, {".jpeg", "image/jpeg"},
    {".webp", "image/webp"}, {".gif", "image/gif"},  {".bmp", "image/bmp"},
};

bool isLetter(char c) { return foldCase(c) >= 'a' && foldCase(c) <= 'z'; }

// What can be refused by the text as it came: nothing, NUL, shares and devices, streams.
bool isRefusedText(std::string_view path) {
  if (path.empty() || path.find('\0') != std::string_view::npos) return true;
  if (path.starts_with("\\\\")) return true;
  const bool hasDrive = path.size() > 1 && isLetter(path[0]) && path[1] == ':';
  return hasDrive && path.find(':', 2) != std::string_view::npos;
}

// The absolute form, when it may be opened at all: only opening a path on another machine would
// already hand the user's credentials to it, and opening a device may block. The work folder may be
// a link to another drive.
bool openablePath(std::string_view path, const std::wstring& finalFolder, std::wstring& absolute) {
  std::wstring wide;
  return !isRefusedText(path) && wideFromUtf8(path, wide) && absolutePath(wide, absolute) &&
         isDrivePath(absolute) &&
         (isSameDrive(absolute, hostDataFolder()) || isSameDrive(absolute, finalFolder));
}

// Everything is asked of the one open handle, which is also what is read: a path that is exchanged
// meanwhile changes nothing.
bool loadFrom(std::string_view path, std::string& body, std::wstring& finalPath) {
  if (hostDataFolder().empty()) return false;
  const std::wstring finalFolder = finalFolderPath(hostDataFolder());
  std::wstring absolute;
  FileFacts facts;
  OwnedFile file;
  if (!openablePath(path, finalFolder, absolute) || !openForReading(absolute, file, facts)) {
    return false;
  }
  if (facts.isLink || !isInsideFolder(facts.finalPath, finalFolder)) return false;
  if (facts.size == 0) return false;
  finalPath = facts.finalPath;
  return readWholeFile(file, facts, maxServedFileBytes, body);
}

}  // namespace

void loadLocalFile(std::string_view path, std::string& body, std::string& contentType,
                   std::string& error) {
  body.clear();
  contentType.clear();
  error.clear();
  std::wstring finalPath;
  if (loadFrom(path, body, finalPath)) {
    contentType = contentTypeFor(toUtf8(finalPath));
    return;
  }
  body.clear();
  error = "file is not available";
}

bool isInsideFolder(std::wstring_view finalPath, std::wstring_view folderFinalPath) {
  const std::size_t size = folderFinalPath.size();
  if (size == 0 || finalPath.size() <= size) return false;
  if (finalPath[size] != L'\\' && finalPath[size] != L'/') return false;
  return isSamePath(finalPath.substr(0, size), folderFinalPath);
}

std::string_view contentTypeFor(std::string_view path) {
  const std::size_t separator = path.find_last_of("/\\");
  const std::string_view name =
      path.substr(separator == std::string_view::npos ? 0 : separator + 1);
  const std::size_t dot = name.rfind('.');
  const std::string_view extension = dot == std::string_view::npos ? "" : name.substr(dot);
  const auto* known = std::find_if(
      std::begin(contentTypes), std::end(contentTypes),
      [extension](const ContentType& c) { return equalsFolded(extension, c.extension); });
  return known != std::end(contentTypes) ? known->type : "application/octet-stream";
}

}  // namespace media::win::chrome_inspect
