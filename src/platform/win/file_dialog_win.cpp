#include "platform/file_dialog.h"

#include <windows.h>
#include <shobjidl.h>

#include "platform/owned.h"
#include "platform/win/apartment_win.h"
#include "platform/win/dialog_raiser_win.h"

namespace media::win::chrome_inspect {
namespace {

template <class Interface>
struct ComTraits {
  using Raw = Interface*;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { raw->Release(); }
};
template <class Interface>
using OwnedCom = Owned<ComTraits<Interface>>;

struct TaskTextTraits {
  using Raw = wchar_t*;
  static Raw none() { return nullptr; }
  static bool valid(Raw raw) { return raw != nullptr; }
  static void close(Raw raw) { CoTaskMemFree(raw); }
};
using OwnedTaskText = Owned<TaskTextTraits>;

OwnedCom<IFileOpenDialog> createDialog() {
  IFileOpenDialog* dialog = nullptr;
  const HRESULT result =
      CoCreateInstance(CLSID_FileOpenDialog, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&dialog));
  return OwnedCom<IFileOpenDialog>(SUCCEEDED(result) ? dialog : nullptr);
}

void setUp(IFileOpenDialog& shown, const FileDialog& dialog) {
  FILEOPENDIALOGOPTIONS options = 0;
  shown.GetOptions(&options);  // when it fails, ours alone count
  options |= FOS_PATHMUSTEXIST | FOS_FORCEFILESYSTEM;
  if (dialog.folders) options |= FOS_PICKFOLDERS;
  if (!dialog.folders) options |= FOS_FILEMUSTEXIST;
  if (dialog.multiple) options |= FOS_ALLOWMULTISELECT;
  shown.SetOptions(options);
  shown.SetTitle(dialog.title);
}

void addPath(IShellItem& item, std::vector<std::wstring>& paths) {
  wchar_t* name = nullptr;
  if (FAILED(item.GetDisplayName(SIGDN_FILESYSPATH, &name))) return;  // not in the file system
  const OwnedTaskText owned(name);
  if (owned) paths.emplace_back(name);
}

void collectPaths(IFileOpenDialog& shown, std::vector<std::wstring>& paths) {
  IShellItemArray* results = nullptr;
  DWORD count = 0;
  if (FAILED(shown.GetResults(&results))) return;
  const OwnedCom<IShellItemArray> items(results);
  items.get()->GetCount(&count);
  for (DWORD index = 0; index < count; ++index) {
    IShellItem* item = nullptr;
    if (FAILED(items.get()->GetItemAt(index, &item))) continue;
    addPath(*OwnedCom<IShellItem>(item).get(), paths);
  }
}

DialogOutcome outcomeOf(HRESULT shown, std::uint32_t& systemError) {
  if (SUCCEEDED(shown)) return DialogOutcome::chosen;
  if (shown == HRESULT_FROM_WIN32(ERROR_CANCELLED)) return DialogOutcome::cancelled;
  systemError = static_cast<std::uint32_t>(shown);
  return DialogOutcome::failed;
}

}  // namespace

DialogOutcome showFileDialog(const FileDialog& dialog, std::vector<std::wstring>& paths,
                             std::uint32_t& systemError) {
  const Apartment apartment(dialog.ole ? Apartment::Kind::ole : Apartment::Kind::com);
  const OwnedCom<IFileOpenDialog> shown = createDialog();
  if (!shown) return DialogOutcome::unavailable;
  setUp(*shown.get(), dialog);
  const HWND before = GetForegroundWindow();
  DWORD cookie = 0;
  const bool advised = SUCCEEDED(shown.get()->Advise(&dialogRaiser(), &cookie));
  const HRESULT result = shown.get()->Show(nullptr);
  if (advised) shown.get()->Unadvise(cookie);
  if (before != nullptr) SetForegroundWindow(before);
  if (SUCCEEDED(result)) collectPaths(*shown.get(), paths);
  return outcomeOf(result, systemError);
}

}  // namespace media::win::chrome_inspect
