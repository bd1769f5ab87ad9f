#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/owned.h"

// Files and folders: asking for them, making them, and opening a file once and judging it by what
// the open handle says. Paths of any length are taken, but where a limit is named.
namespace media::win::chrome_inspect {

// The separator between path components on this system.
extern const wchar_t pathSeparator;

// Whether `path` names something that exists and is no folder, or is a folder.
bool isExistingFile(const std::wstring& path);
bool isExistingFolder(const std::wstring& path);

// The same of the path as it is written: with 260 characters or more it is nothing to Windows,
// which could start no program there either.
bool isFileAsWritten(const std::wstring& path);
bool isFolderAsWritten(const std::wstring& path);

// Makes one folder; true when it exists afterwards, made by us or not.
bool makeFolder(const std::wstring& path);

// Looks `name` up along the system's search order for executables; at most 259 characters are
// taken, a longer result is a miss. Windows: SearchPathW, which also looks into the current
// folder. POSIX: the folders of "PATH".
bool searchExecutable(const std::wstring& name, std::wstring& path);

struct FileTraits {
  using Raw = std::intptr_t;
  static Raw none() { return -1; }
  static bool valid(Raw raw) { return raw != -1; }
  static void close(Raw raw);
};
using OwnedFile = Owned<FileTraits>;

struct FileFacts {
  std::wstring finalPath;  // without the "\\?\" prefix; empty when the system does not know it
  bool isLink = false;     // a symbolic link, or a junction
  bool isRegular = false;  // a file with bytes: no folder, device or pipe, and no link
  std::uint64_t size = 0;
};

// `path` made absolute by its text alone, without asking the disk (GetFullPathNameW). False when
// the system refuses it.
bool absolutePath(const std::wstring& path, std::wstring& absolute);

// Whether an absolute path names a place on a drive of this machine by its form: a drive letter,
// and no device, stream or share. POSIX: it begins with one slash.
bool isDrivePath(const std::wstring& absolute);

// Whether two paths lie on the same drive by their form. POSIX: always.
bool isSameDrive(const std::wstring& a, const std::wstring& b);

// Whether two paths are written alike in the file system's eyes: letter case counts on POSIX only.
bool isSamePath(std::wstring_view a, std::wstring_view b);

// Opens a file for reading, denying others nothing and not following a link in its last component,
// and says what was opened. Never blocks on a pipe or device. False also for a file whose content
// is not on this machine (FILE_ATTRIBUTE_RECALL_ON_DATA_ACCESS and its like): nothing is fetched.
bool openForReading(const std::wstring& path, OwnedFile& file, FileFacts& facts);

// Reads exactly `size` bytes from where the last read ended.
bool readExactly(const OwnedFile& file, char* buffer, std::size_t size);

// The final path of an existing folder, links followed, as in FileFacts.
std::wstring finalFolderPath(const std::wstring& path);

// What an existing folder is, itself: of a link, not what it points to.
bool folderFacts(const std::wstring& path, FileFacts& facts);

struct FolderEntry {
  std::wstring name;
  bool isRegular = false;  // as in FileFacts
  bool isFolder = false;   // and no link
  std::int64_t ageMs = 0;  // since the last write; negative when that lies in the future
};

// Calls `visit` for each entry of a folder, but "." and "..", until it says false. False when the
// folder could not be read to its end.
bool visitFolder(const std::wstring& path, const std::function<bool(const FolderEntry&)>& visit);

// Writes a file of its own, creating it or emptying one of the same name. On failure nothing is
// left of it.
bool writeWholeFile(const std::wstring& path, const std::string& bytes);

bool deleteFile(const std::wstring& path);

// Gives a file another name in the same folder, in one step; a file of that name is replaced.
bool renameOver(const std::wstring& from, const std::wstring& to);

// Whether this user may add files to an existing folder, found out without adding one.
bool mayAddFiles(const std::wstring& folder);

}  // namespace media::win::chrome_inspect
