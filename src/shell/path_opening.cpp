#include "shell/path_opening.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "channel/host_log.h"
#include "common/bounded.h"
#include "common/detached.h"
#include "common/paths.h"
#include "common/reachable.h"
#include "platform/files.h"
#include "platform/shell.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

// Calls of the shell that may be under way at a time; each holds a thread, some for very long.
constexpr int maxShellCalls = 16;
std::atomic<int> shellCalls = 0;

// The arguments of shellExecute.
struct ShellCall {
  std::wstring file;
  const wchar_t* verb;
  std::wstring parameters;
};

bool isWebAddress(std::string_view target) {
  return target.starts_with("http://") || target.starts_with("https://");
}

bool isControl(wchar_t c) { return c < L' ' || c == L'\x7F'; }

// A NUL would cut the text short for the system; no control character belongs into a path or an
// address. Empty when the target cannot be used.
std::wstring wideTarget(std::string_view target) {
  std::wstring wide;
  if (!wideFromUtf8(target, wide) || std::any_of(wide.begin(), wide.end(), isControl)) return {};
  return wide;
}

void runShellCall(const ShellCall& call) {
  const bool ok = shellExecute(call.file, call.verb, call.parameters);
  --shellCalls;
  if (!ok) queueDebugLog("shell did not open " + toUtf8(call.file), "warn");
}

// False when 16 calls are under way already, or no thread can be had.
bool startShellCall(ShellCall call, std::string& error) {
  if (++shellCalls <= maxShellCalls &&
      runDetached("shell", [call = std::move(call)] { runShellCall(call); })) {
    return true;
  }
  --shellCalls;
  error = "too many programs are being opened";
  return false;
}

bool isSeparator(wchar_t c) { return c == L'/' || c == L'\\'; }

bool standsAlone(const std::wstring& path) {
  return isSeparator(path.front()) || (path.size() > 1 && path[1] == L':');
}

struct FoundPath {
  std::wstring path;
  bool folder = false;
};

// What the target names, when that is there. Looks into the file system: may block for long.
std::optional<FoundPath> findPath(const std::wstring& target) {
  std::wstring path;
  if (target.empty()) return std::nullopt;
  if (!absolutePath(standsAlone(target) ? target : joinPath(hostDataFolder(), target), path)) {
    return std::nullopt;
  }
  if (isExistingFolder(path)) return FoundPath{std::move(path), true};
  if (isExistingFile(path)) return FoundPath{std::move(path), false};
  return std::nullopt;
}

ShellCall revealInExplorer(const std::wstring& path) {
  return {L"explorer.exe", L"open", L"/select,\"" + path + L"\""};
}

ShellCall explore(FoundPath found) {
  if (!found.folder) found.path.resize(found.path.find_last_of(pathSeparator) + 1);
  return {std::move(found.path), L"explore", L""};
}

ShellCall callFor(PathAction action, FoundPath found) {
  if (action == PathAction::reveal) return revealInExplorer(found.path);
  if (action == PathAction::explore) return explore(std::move(found));
  return {std::move(found.path), L"open", L""};
}

}  // namespace

bool openUrl(std::string_view target, std::string& error) {
  std::wstring address = wideTarget(target);
  return address.empty() || startShellCall({std::move(address), L"open", L""}, error);
}

bool openPath(std::string_view target, PathAction action, std::string& error) {
  if (isWebAddress(target)) return openUrl(target, error);
  auto found = runBounded("file look-up", fileLookMs,
                          [path = wideTarget(target)] { return findPath(path); });
  if (!found || !*found) {
    error = "file not found";
    return false;
  }
  return startShellCall(callFor(action, std::move(**found)), error);
}

}  // namespace media::win::chrome_inspect
