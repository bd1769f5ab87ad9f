#include "platform/win/dialog_raiser_win.h"

#include "platform/win/foreground_win.h"
#include "text/leaked.h"

namespace media::win::chrome_inspect {
namespace {

HWND windowOf(IFileDialog& dialog) {
  IOleWindow* window = nullptr;
  HWND handle = nullptr;
  if (FAILED(dialog.QueryInterface(IID_PPV_ARGS(&window)))) return nullptr;
  if (FAILED(window->GetWindow(&handle))) handle = nullptr;
  window->Release();
  return handle;
}

// Never deleted, so the count of references says nothing.
class DialogRaiser final : public IFileDialogEvents {
 public:
  STDMETHODIMP QueryInterface(REFIID id, void** object) override {
    const bool known =
        IsEqualIID(id, __uuidof(IUnknown)) || IsEqualIID(id, __uuidof(IFileDialogEvents));
    *object = known ? this : nullptr;
    return known ? S_OK : E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return 2; }
  STDMETHODIMP_(ULONG) Release() override { return 1; }

  // The first event of all: the dialog is there and shows its first folder.
  STDMETHODIMP OnFolderChange(IFileDialog* dialog) override {
    if (const HWND window = windowOf(*dialog)) {
      ShowWindow(window, SW_SHOW);
      bringToFront(window);
    }
    return S_OK;
  }
  STDMETHODIMP OnFileOk(IFileDialog* /*dialog*/) override { return S_OK; }
  STDMETHODIMP OnFolderChanging(IFileDialog* /*dialog*/, IShellItem* /*folder*/) override {
    return S_OK;
  }
  STDMETHODIMP OnSelectionChange(IFileDialog* /*dialog*/) override { return S_OK; }
  STDMETHODIMP OnShareViolation(IFileDialog* /*dialog*/, IShellItem* /*item*/,
                                FDE_SHAREVIOLATION_RESPONSE* /*response*/) override {
    return E_NOTIMPL;
  }
  STDMETHODIMP OnTypeChange(IFileDialog* /*dialog*/) override { return S_OK; }
  STDMETHODIMP OnOverwrite(IFileDialog* /*dialog*/, IShellItem* /*item*/,
                           FDE_OVERWRITE_RESPONSE* /*response*/) override {
    return E_NOTIMPL;
  }
};

}  // namespace

IFileDialogEvents& dialogRaiser() {
  static DialogRaiser& raiser = leaked<DialogRaiser>();
  return raiser;
}

}  // namespace media::win::chrome_inspect
