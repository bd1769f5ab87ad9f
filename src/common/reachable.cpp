#include "common/reachable.h"

#include "common/bounded.h"
#include "platform/files.h"

namespace media::win::chrome_inspect {
namespace {

bool isSeen(const std::wstring& path, bool (*isThere)(const std::wstring& path)) {
  return runBounded("file look-up", fileLookMs, [=] { return isThere(path); }).value_or(false);
}

}  // namespace

bool isReachableFile(const std::wstring& path) { return isSeen(path, isFileAsWritten); }
bool isReachableFolder(const std::wstring& path) { return isSeen(path, isFolderAsWritten); }

}  // namespace media::win::chrome_inspect
