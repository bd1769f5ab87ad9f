#include "app_ipc/instance_discovery.h"

#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>

#include "common/paths.h"
#include "common/whole_file.h"
#include "platform/environment.h"
#include "platform/files.h"
#include "platform/process.h"
#include "text/json_parse.h"
#include "text/json_read.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr std::uint32_t maxPort = 65535;

// A port in decimal digits and nothing else; 0 when it is none.
std::uint32_t portOf(std::string_view text) {
  std::uint32_t port = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, port);
  return parsed.ec == std::errc() && parsed.ptr == end && port <= maxPort ? port : 0;
}

void examineFile(const std::wstring& path, AppInstance& accepted) {
  std::string text;
  AppInstance instance;
  std::uint32_t pid = 0;
  if (!readWholeFile(path, maxInstanceFileBytes, text)) return;
  if (!readAnnouncement(text, instance, pid)) return;
  if (!isProcessRunning(pid)) return;
  if (accepted.port != 0 && instance.startedUnixMs < accepted.startedUnixMs) return;
  accepted = std::move(instance);
}

// A file that is called ".json" has no extension.
bool isAnnouncementName(std::wstring_view name) {
  constexpr std::wstring_view extension = L".json";
  return name.size() > extension.size() && name.ends_with(extension);
}

void examineFolder(const std::wstring& application, AppInstance& accepted) {
  const std::wstring folder = joinPath(joinPath(application, L"instances"), L"run-ipc");
  (void)visitFolder(folder, [&](const FolderEntry& entry) {
    if (entry.isRegular && isAnnouncementName(entry.name)) {
      examineFile(joinPath(folder, entry.name), accepted);
    }
    return true;
  });
}

}  // namespace

AppInstance discoverAppInstance() {
  AppInstance accepted;
  std::wstring appData;
  if (!readEnvironment(L"APPDATA", maxVariableCharacters, appData)) return accepted;
  const std::wstring vendor = joinPath(appData, L"Quenlark");
  examineFolder(joinPath(vendor, L"morva-viewer"), accepted);
  if (accepted.port != 0) return accepted;
  (void)visitFolder(vendor, [&](const FolderEntry& entry) {
    if (entry.isFolder) examineFolder(joinPath(vendor, entry.name), accepted);
    return true;
  });
  return accepted;
}

bool readAnnouncement(const std::string& text, AppInstance& instance, std::uint32_t& pid) {
  json file;
  std::string ignored;
  if (parseJson(text, file, ignored) != ParseOutcome::ok) return false;
  if (lenientText(file, "kind") != "ui" || lenientText(file, "transport") != "tcp") return false;
  const std::int64_t process = lenientInt64(file, "pid", 0);
  if (process <= 0 || process > 0xFFFFFFFF) return false;
  instance.port = portOf(lenientText(file, "endpoint"));
  instance.token = lenientText(file, "token");
  instance.startedUnixMs = lenientInt64(file, "startedUnixMs", 0);
  pid = static_cast<std::uint32_t>(process);
  return instance.port != 0 && !instance.token.empty();
}

}  // namespace media::win::chrome_inspect
