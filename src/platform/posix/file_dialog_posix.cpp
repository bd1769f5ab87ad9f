#include "platform/file_dialog.h"

namespace media::win::chrome_inspect {

DialogOutcome showFileDialog(const FileDialog& /*dialog*/, std::vector<std::wstring>& /*paths*/,
                             std::uint32_t& /*systemError*/) {
  return DialogOutcome::unavailable;
}

}  // namespace media::win::chrome_inspect
