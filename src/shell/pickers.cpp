#include "shell/pickers.h"

#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "channel/panel_events.h"
#include "common/detached.h"
#include "platform/file_dialog.h"
#include "platform/locks.h"
#include "text/leaked.h"
#include "text/wide.h"

namespace media::win::chrome_inspect {
namespace {

using nlohmann::json;

constexpr FileDialog filesDialog = {.title = L"Add files to chat", .multiple = true};
constexpr FileDialog folderDialog = {
    .title = L"Select a folder to add to chat", .folders = true, .multiple = true};
constexpr FileDialog cliFolderDialog = {
    .title = L"Folder that contains morva-cli.exe", .folders = true, .ole = true};

// A dialog that has just been closed is gone by then; one that the user looks at is not.
constexpr std::chrono::seconds closingTime(1);

struct OpenDialog {
  Mutex mutex;  // not held while the dialog is open
  Condition closed;
  bool isOpen MORVA_GUARDED_BY(mutex) = false;
};

OpenDialog& openDialog() {
  static OpenDialog& dialog = leaked<OpenDialog>();
  return dialog;
}

// Reserves the only dialog at a time: a second one would hide behind the first, or the first
// behind it.
class DialogReservation {
 public:
  DialogReservation() {
    OpenDialog& dialog = openDialog();
    const auto deadline = Condition::Clock::now() + closingTime;
    const Lock lock(dialog.mutex);
    while (dialog.isOpen && dialog.closed.waitUntil(dialog.mutex, deadline)) continue;
    mine_ = !std::exchange(dialog.isOpen, true);
  }
  ~DialogReservation() {
    if (!mine_) return;
    OpenDialog& dialog = openDialog();
    const Lock lock(dialog.mutex);
    dialog.isOpen = false;
    dialog.closed.notifyOne();
  }
  DialogReservation(const DialogReservation&) = delete;
  DialogReservation& operator=(const DialogReservation&) = delete;
  bool granted() const { return mine_; }

 private:
  bool mine_ = false;
};

DialogOutcome showAlone(const FileDialog& dialog, std::vector<std::wstring>& paths,
                        std::uint32_t& systemError) {
  const DialogReservation reservation;
  return reservation.granted() ? showFileDialog(dialog, paths, systemError)
                               : DialogOutcome::unavailable;
}

void reportNoDialog() {
  emitPanelMessage("appendText",
                   json::array({{{"role", "error"}, {"text", "File picker did not open"}}}));
}

void runContextPicker(const FileDialog& dialog) {
  std::vector<std::wstring> chosen;
  std::uint32_t systemError = 0;
  if (showAlone(dialog, chosen, systemError) == DialogOutcome::unavailable) reportNoDialog();
  json paths = json::array();
  for (const std::wstring& path : chosen) paths.push_back(toUtf8(path));
  attachContextPaths(paths);
}

std::string hexadecimal(std::uint32_t number) {
  char text[9] = {};
  std::snprintf(text, sizeof text, "%08lx", static_cast<unsigned long>(number));
  return text;
}

}  // namespace

void pickContextPaths(bool folders) {
  const FileDialog& dialog = folders ? folderDialog : filesDialog;
  if (!runDetached("picker", [&dialog] { runContextPicker(dialog); })) reportNoDialog();
}

void attachContextPaths(const json& paths) {
  if (paths.empty()) return;
  json arguments = json::array();
  arguments.push_back(paths);
  emitPanelMessage("appendContextPaths", arguments);
}

void pickCliFolder(std::wstring& path, std::string& error) {
  std::vector<std::wstring> chosen;
  std::uint32_t systemError = 0;
  path.clear();
  error.clear();
  const DialogOutcome outcome = showAlone(cliFolderDialog, chosen, systemError);
  if (outcome == DialogOutcome::unavailable) error = "folder picker did not open";
  if (outcome == DialogOutcome::failed) {
    error = "folder picker did not open (" + hexadecimal(systemError) + ")";
  }
  if (!chosen.empty()) path = chosen.front();
}

}  // namespace media::win::chrome_inspect
