#include "platform/files.h"

#include <windows.h>
#include <winternl.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/win/handles_win.h"
#include "platform/win/long_path_win.h"

namespace media::win::chrome_inspect {
namespace {

constexpr DWORD maxFinalPath = 32768;
constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::int64_t ticksPerMs = 10000;  // of FILETIME, which counts in 100 ns

OwnedFile opened(HANDLE handle) { return OwnedFile(rawOf(handle)); }

using QueryObjectCall = NTSTATUS(NTAPI*)(HANDLE object, ULONG kind, void* buffer, ULONG size,
                                         ULONG* needed);
constexpr ULONG objectNameInformation = 1;

// Wine's GetFinalPathNameByHandleW knows no path of more than 260 characters, but what it asks
// does. Windows would name a device here, which counts as no answer.
std::wstring drivePathOfObject(HANDLE handle) {
  const FARPROC found = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject");
  if (found == nullptr) return {};
  const auto queryObject = reinterpret_cast<QueryObjectCall>(reinterpret_cast<void*>(found));
  std::vector<UNICODE_STRING> name(maxFinalPath * sizeof(wchar_t) / sizeof(UNICODE_STRING));
  const auto size = static_cast<ULONG>(name.size() * sizeof(UNICODE_STRING));
  if (queryObject(handle, objectNameInformation, name.data(), size, nullptr) < 0) return {};
  const std::wstring_view path(name[0].Buffer, name[0].Length / sizeof(wchar_t));
  constexpr std::wstring_view prefix = LR"(\??\)";
  return path.starts_with(prefix) ? std::wstring(path.substr(prefix.size())) : std::wstring();
}

std::wstring finalPathOf(HANDLE handle) {
  std::wstring path(maxFinalPath, L'\0');
  const DWORD length =
      GetFinalPathNameByHandleW(handle, path.data(), maxFinalPath, FILE_NAME_NORMALIZED);
  if (length == 0 || length >= maxFinalPath) return drivePathOfObject(handle);
  path.resize(length);
  if (path.starts_with(LR"(\\?\UNC\)")) return LR"(\\)" + path.substr(8);
  return path.starts_with(LR"(\\?\)") ? path.substr(4) : path;
}

bool isLinkTag(DWORD tag) {
  return tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT;
}

bool isBytes(DWORD attributes) {
  return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) == 0;
}

bool isLink(HANDLE handle, DWORD attributes) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  FILE_ATTRIBUTE_TAG_INFO info = {};
  // One whose tag cannot be read counts as a link.
  return !GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &info, sizeof info) ||
         isLinkTag(info.ReparseTag);
}

// Whether reading would have a file fetched from elsewhere, which takes as long as it likes.
bool isElsewhere(DWORD attributes) {
  constexpr DWORD recallOnOpen = 0x00040000;  // FILE_ATTRIBUTE_..., not in every tool chain
  constexpr DWORD recallOnDataAccess = 0x00400000;
  return (attributes & (FILE_ATTRIBUTE_OFFLINE | recallOnOpen | recallOnDataAccess)) != 0;
}

bool factsOf(HANDLE handle, FileFacts& facts, DWORD& attributes) {
  BY_HANDLE_FILE_INFORMATION info = {};
  if (!GetFileInformationByHandle(handle, &info)) return false;
  attributes = info.dwFileAttributes;
  facts.finalPath = finalPathOf(handle);
  facts.isLink = isLink(handle, info.dwFileAttributes);
  facts.isRegular =
      !facts.isLink && GetFileType(handle) == FILE_TYPE_DISK && isBytes(info.dwFileAttributes);
  facts.size = (static_cast<std::uint64_t>(info.nFileSizeHigh) << 32U) | info.nFileSizeLow;
  return true;
}

OwnedFile openFolder(const std::wstring& path, DWORD flags) {
  return opened(CreateFileW(longPath(path).c_str(), FILE_READ_ATTRIBUTES, shareAll, nullptr,
                            OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | flags, nullptr));
}

std::int64_t ticksOf(const FILETIME& time) {
  ULARGE_INTEGER value = {};
  value.LowPart = time.dwLowDateTime;
  value.HighPart = time.dwHighDateTime;
  return static_cast<std::int64_t>(value.QuadPart);
}

FolderEntry entryOf(const WIN32_FIND_DATAW& found) {
  FILETIME now = {};
  GetSystemTimeAsFileTime(&now);
  const bool isLink = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                      isLinkTag(found.dwReserved0);  // the tag, when there is one
  const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  return {found.cFileName, !isLink && isBytes(found.dwFileAttributes), !isLink && isFolder,
          (ticksOf(now) - ticksOf(found.ftLastWriteTime)) / ticksPerMs};
}

struct FindTraits {
  using Raw = HANDLE;
  static Raw none() { return INVALID_HANDLE_VALUE; }
  static bool valid(Raw raw) { return raw != INVALID_HANDLE_VALUE; }
  static void close(Raw raw) { FindClose(raw); }
};

bool writeAll(HANDLE handle, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const auto size = static_cast<DWORD>(std::min<std::size_t>(bytes.size() - done, MAXLONG));
    DWORD written = 0;
    if (!WriteFile(handle, bytes.data() + done, size, &written, nullptr) || written == 0)
      return false;
    done += written;
  }
  return true;
}

}  // namespace

const wchar_t pathSeparator = L'\\';

bool isFileAsWritten(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

bool isFolderAsWritten(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool isExistingFile(const std::wstring& path) { return isFileAsWritten(longPath(path)); }
bool isExistingFolder(const std::wstring& path) { return isFolderAsWritten(longPath(path)); }

bool makeFolder(const std::wstring& path) {
  return CreateDirectoryW(longPath(path).c_str(), nullptr) || isExistingFolder(path);
}

bool searchExecutable(const std::wstring& name, std::wstring& path) {
  wchar_t found[MAX_PATH] = {};
  const DWORD length = SearchPathW(nullptr, name.c_str(), nullptr, MAX_PATH, found, nullptr);
  if (length == 0 || length >= MAX_PATH) return false;
  path.assign(found, length);
  return true;
}

void FileTraits::close(Raw raw) { CloseHandle(handleOf(raw)); }

bool absolutePath(const std::wstring& path, std::wstring& absolute) {
  std::wstring full(maxFinalPath, L'\0');
  const DWORD length = GetFullPathNameW(path.c_str(), maxFinalPath, full.data(), nullptr);
  if (length == 0 || length >= maxFinalPath) return false;
  absolute = full.substr(0, length);
  return true;
}

bool isDrivePath(const std::wstring& absolute) {
  if (absolute.size() < 3 || absolute[1] != L':' || absolute[2] != L'\\') return false;
  const wchar_t letter = absolute[0] | 0x20;
  return letter >= L'a' && letter <= L'z' && absolute.find(L':', 2) == std::wstring::npos;
}

bool isSameDrive(const std::wstring& a, const std::wstring& b) {
  return isDrivePath(a) && isDrivePath(b) && (a[0] | 0x20) == (b[0] | 0x20);
}

bool isSamePath(std::wstring_view a, std::wstring_view b) {
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                              static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

bool openForReading(const std::wstring& path, OwnedFile& file, FileFacts& facts) {
  OwnedFile handle = opened(CreateFileW(longPath(path).c_str(), GENERIC_READ, shareAll, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  DWORD attributes = 0;
  if (!handle || !factsOf(handleOf(handle), facts, attributes)) return false;
  if (isElsewhere(attributes)) return false;
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && !facts.isLink) {
    // The same file once more, for its bytes: the system has put them together in a way of its own.
    handle = opened(ReOpenFile(handleOf(handle), GENERIC_READ, shareAll, 0));
    if (!handle || !factsOf(handleOf(handle), facts, attributes)) return false;
  }
  file = std::move(handle);
  return true;
}

bool readExactly(const OwnedFile& file, char* buffer, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const auto wanted = static_cast<DWORD>(std::min<std::size_t>(size - done, MAXLONG));
    DWORD got = 0;
    if (!ReadFile(handleOf(file), buffer + done, wanted, &got, nullptr) || got == 0) return false;
    done += got;
  }
  return true;
}

std::wstring finalFolderPath(const std::wstring& path) {
  const OwnedFile folder = openFolder(path, 0);
  return folder ? finalPathOf(handleOf(folder)) : std::wstring();
}

bool folderFacts(const std::wstring& path, FileFacts& facts) {
  const OwnedFile folder = openFolder(path, FILE_FLAG_OPEN_REPARSE_POINT);
  DWORD attributes = 0;
  return folder && factsOf(handleOf(folder), facts, attributes);
}

bool visitFolder(const std::wstring& path, const std::function<bool(const FolderEntry&)>& visit) {
  WIN32_FIND_DATAW found = {};
  const Owned<FindTraits> search(FindFirstFileW((longPath(path) + L"\\*").c_str(), &found));
  if (!search) return false;
  do {
    const FolderEntry entry = entryOf(found);
    if (entry.name != L"." && entry.name != L".." && !visit(entry)) return true;
  } while (FindNextFileW(search.get(), &found));
  return GetLastError() == ERROR_NO_MORE_FILES;
}

bool writeWholeFile(const std::wstring& path, const std::string& bytes) {
  OwnedFile file = opened(CreateFileW(longPath(path).c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;
  // Closing may be what fails, on a network drive for example.
  if (writeAll(handleOf(file), bytes) && CloseHandle(handleOf(file.release()))) {
    return true;
  }
  file.reset();
  (void)deleteFile(path);
  return false;
}

bool deleteFile(const std::wstring& path) { return DeleteFileW(longPath(path).c_str()); }

bool renameOver(const std::wstring& from, const std::wstring& to) {
  constexpr DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  return MoveFileExW(longPath(from).c_str(), longPath(to).c_str(), flags);
}

bool mayAddFiles(const std::wstring& folder) {
  const OwnedFile handle =
      opened(CreateFileW(longPath(folder).c_str(), FILE_ADD_FILE, shareAll, nullptr, OPEN_EXISTING,
                         FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  return static_cast<bool>(handle);
}

}  // namespace media::win::chrome_inspect
