#pragma once

#include <windows.h>
#include <shobjidl.h>

namespace media::win::chrome_inspect {

// Told of a file dialog's events, shows the dialog in front: the host has no window of its own, and
// the browser starts it hidden, which the first window of a process takes over. Lives for ever and
// keeps no state, so any number of dialogs on any threads may share it.
IFileDialogEvents& dialogRaiser();

}  // namespace media::win::chrome_inspect
