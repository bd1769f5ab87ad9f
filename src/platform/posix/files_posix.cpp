#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>

#include "platform/posix/descriptor_posix.h"
#include "platform/posix/path_text_posix.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

constexpr std::size_t maxFoundPath = 259;  // as many as the Windows call has room for

bool statusOf(const std::wstring& path, struct stat& status) {
  return ::stat(pathText(path).c_str(), &status) == 0;
}

// Takes the part before the next ':' from the front of `list`.
std::string_view takeFolder(std::string_view& list) {
  const std::string_view folder = list.substr(0, list.find(':'));
  list.remove_prefix(folder.size() < list.size() ? folder.size() + 1 : list.size());
  return folder;
}

int descriptorOf(const OwnedFile& file) { return static_cast<int>(file.get()); }

// The path behind an open descriptor, as the kernel names it.
std::wstring finalPathOf(int descriptor) {
  std::string path(PATH_MAX, '\0');
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  if (length <= 0 || static_cast<std::size_t>(length) == path.size()) return {};
  path.resize(static_cast<std::size_t>(length));
  return toWide(path);
}

bool openWith(const std::wstring& path, int flags, OwnedFile& file, FileFacts& facts) {
  const int raw = retryInterrupted([&] { return open(pathText(path).c_str(), flags | O_CLOEXEC); });
  OwnedDescriptor descriptor = awayFromStandardStreams(OwnedDescriptor(raw));
  struct stat status = {};
  if (!descriptor || fstat(descriptor.get(), &status) != 0) return false;
  facts.finalPath = finalPathOf(descriptor.get());
  facts.isLink = S_ISLNK(status.st_mode);
  facts.isRegular = S_ISREG(status.st_mode);
  facts.size = static_cast<std::uint64_t>(status.st_size);
  file.reset(descriptor.release());
  return true;
}

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

FolderEntry entryOf(int folder, const char* name) {
  FolderEntry entry;
  entry.name = toWide(name);
  struct stat status = {};
  if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return entry;
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto written = std::chrono::seconds(status.st_mtim.tv_sec) +
                       std::chrono::nanoseconds(status.st_mtim.tv_nsec);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  entry.isRegular = S_ISREG(status.st_mode);
  entry.isFolder = S_ISDIR(status.st_mode);
  entry.ageMs = duration_cast<milliseconds>(now - written).count();
  return entry;
}

bool writeAll(int descriptor, const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = retryInterrupted(
        [&] { return write(descriptor, bytes.data() + done, bytes.size() - done); });
    if (written <= 0) return false;
    done += static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

const wchar_t pathSeparator = L'/';

bool isExistingFile(const std::wstring& path) {
  struct stat status = {};
  return statusOf(path, status) && !S_ISDIR(status.st_mode);
}

bool isExistingFolder(const std::wstring& path) {
  struct stat status = {};
  return statusOf(path, status) && S_ISDIR(status.st_mode);
}

bool isFileAsWritten(const std::wstring& path) { return isExistingFile(path); }
bool isFolderAsWritten(const std::wstring& path) { return isExistingFolder(path); }

bool makeFolder(const std::wstring& path) {
  return ::mkdir(pathText(path).c_str(), S_IRWXU) == 0 || isExistingFolder(path);
}

bool searchExecutable(const std::wstring& name, std::wstring& path) {
  const char* variable = std::getenv("PATH");
  std::string_view list = variable != nullptr ? variable : "";
  while (!list.empty()) {
    const std::string_view folder = takeFolder(list);
    const std::wstring candidate = toWide(folder.empty() ? "." : folder) + L"/" + name;
    if (candidate.size() > maxFoundPath || !isExistingFile(candidate)) continue;
    path = candidate;
    return true;
  }
  return false;
}

void FileTraits::close(Raw raw) { ::close(static_cast<int>(raw)); }

bool absolutePath(const std::wstring& path, std::wstring& absolute) {
  if (path.empty()) return false;
  std::error_code error;
  const auto full = std::filesystem::absolute(toUtf8(path), error);
  if (error) return false;
  absolute = toWide(full.lexically_normal().string());
  return true;
}

bool isDrivePath(const std::wstring& absolute) {
  return absolute.starts_with(L"/") && !absolute.starts_with(L"//");
}

bool isSameDrive(const std::wstring&, const std::wstring&) { return true; }

bool isSamePath(std::wstring_view a, std::wstring_view b) { return a == b; }

bool openForReading(const std::wstring& path, OwnedFile& file, FileFacts& facts) {
  // A pipe opened for reading would wait for its writer.
  return openWith(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK, file, facts);
}

bool readExactly(const OwnedFile& file, char* buffer, std::size_t size) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t got =
        retryInterrupted([&] { return read(descriptorOf(file), buffer + done, size - done); });
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

std::wstring finalFolderPath(const std::wstring& path) {
  OwnedFile folder;
  FileFacts facts;
  return openWith(path, O_PATH | O_DIRECTORY, folder, facts) ? facts.finalPath : std::wstring();
}

bool folderFacts(const std::wstring& path, FileFacts& facts) {
  OwnedFile folder;
  return openWith(path, O_PATH | O_NOFOLLOW, folder, facts);
}

bool visitFolder(const std::wstring& path, const std::function<bool(const FolderEntry&)>& visit) {
  const std::unique_ptr<DIR, CloseFolder> folder(opendir(pathText(path).c_str()));
  if (!folder) return false;
  for (;;) {
    errno = 0;
    const dirent* found = readdir(folder.get());  // each call has a folder stream of its own
    if (found == nullptr) return errno == 0;
    const FolderEntry entry = entryOf(dirfd(folder.get()), found->d_name);
    if (entry.name != L"." && entry.name != L".." && !visit(entry)) return true;
  }
}

bool writeWholeFile(const std::wstring& path, const std::string& bytes) {
  const std::string name = pathText(path);
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  OwnedDescriptor file(
      retryInterrupted([&] { return open(name.c_str(), flags, S_IRUSR | S_IWUSR); }));
  if (!file) return false;
  if (writeAll(file.get(), bytes) && ::close(file.release()) == 0) return true;
  (void)unlink(name.c_str());
  return false;
}

bool deleteFile(const std::wstring& path) { return unlink(pathText(path).c_str()) == 0; }

bool renameOver(const std::wstring& from, const std::wstring& to) {
  return rename(pathText(from).c_str(), pathText(to).c_str()) == 0;
}

bool mayAddFiles(const std::wstring& folder) {
  return access(pathText(folder).c_str(), W_OK | X_OK) == 0;
}

}  // namespace media::win::chrome_inspect
