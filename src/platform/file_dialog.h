#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The system's dialog for choosing files or folders.
namespace media::win::chrome_inspect {

struct FileDialog {
  const wchar_t* title = L"";
  bool folders = false;   // choose folders instead of files
  bool multiple = false;  // more than one may be chosen
  bool ole = false;       // the thread is set up with OLE instead of plain COM
};

// `unavailable`: the system has no dialog. `failed`: it could not be shown; see `systemError`.
enum class DialogOutcome { chosen, cancelled, unavailable, failed };

// Shows the dialog, in front and without an owner window, and blocks until the user has closed it;
// the window that was in front before is then in front again. `paths` is what was chosen, files
// that exist in the file system only; `systemError` (an HRESULT) is set with `failed`. To be called
// on a thread that has not been set up for COM: that is done here, and undone.
// Windows side: IFileOpenDialog (learn.microsoft.com, shobjidl_core.h). POSIX: always
// `unavailable`.
DialogOutcome showFileDialog(const FileDialog& dialog, std::vector<std::wstring>& paths,
                             std::uint32_t& systemError);

}  // namespace media::win::chrome_inspect
