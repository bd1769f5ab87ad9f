#pragma once

#include <windows.h>

namespace media::win::chrome_inspect {

// Brings a window of the calling thread to the front, with the keyboard, whoever is there. Windows
// lets only the process do so that got the last input, which is the browser (learn.microsoft.com,
// SetForegroundWindow, "Remarks"); so for the time of the call this thread shares the input of the
// one that is in front (AttachThreadInput). One that has stopped answering is left alone: the call
// would wait for it.
void bringToFront(HWND window);

}  // namespace media::win::chrome_inspect
